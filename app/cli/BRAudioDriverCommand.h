#pragma once

#include "platform/PXSoundPlatform.h"

/// `tolvane audio-driver install`: puts the driver in its place, which takes an administrator's
/// leave, and loads it. Nothing is said where the user declines.
int BRRunAudioDriverInstall(PXSoundPlatform &sound);
/// `tolvane audio-driver uninstall`: undoes that; harmless where there is no driver.
int BRRunAudioDriverUninstall(PXSoundPlatform &sound);
/// `tolvane audio-driver status`: whether it is installed on this machine, and whether the running
/// sound server has loaded it.
int BRRunAudioDriverStatus(PXSoundPlatform &sound, bool asJSON);
