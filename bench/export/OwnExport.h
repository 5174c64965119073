#pragma once

#include "platform/PXCompressionSession.h"

#include <QString>

/// Exports a capture as H.264; answers the wall seconds. Ends the program where that fails.
double exportWithUs(const QString &capture, const QString &output, PXEncoderSpeed speed);
