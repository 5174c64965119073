#pragma once

class PXSoundPlatform;

/// `tolvane devices [--json]`: the sound inputs and outputs, and which is the default. What only
/// records an output is no input.
int BRRunDevicesCommand(PXSoundPlatform &sound, bool asJSON);
