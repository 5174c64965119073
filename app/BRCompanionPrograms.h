#pragma once

/// Small programs beside the main one that go on when it ends. Main thread.
namespace BRCompanionPrograms {

/// Starts "audiobuddy", which waits for this program's end and puts the user's output device back
/// when it could not do so itself. Logs where it cannot be started.
void startAudioBuddy();

} // namespace BRCompanionPrograms
