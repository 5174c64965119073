#pragma once

#include <QString>

enum class BRPictureFormat { PNG, BGRA };

/// `tolvane frames PATH --out DIR [--format png|bgra]`: every frame of a raw capture as a whole
/// picture, DIR/000000.png and on, and DIR/frames.json over them.
int BRRunFramesCommand(const QString &path, const QString &outputFolder, BRPictureFormat format);
