#pragma once

#include <array>
#include <string_view>

/// A file of the audio driver.
struct PXDriverFile {
    std::string_view path; ///< Inside the driver's folder.
    std::string_view contents;
};

/// All of them, as this program was built with them (resources/TolvaneAudio.kext).
extern const std::array<PXDriverFile, 3> kPXDriverFiles;
