#pragma once

#include <cstdint>
#include <optional>

/// Between the virtual key codes of stored shortcuts, which name a key's place on the keyboard, and
/// the X server's: those of Linux's input layer plus 8, on every server of today. A key that has
/// no old number has 256 plus Linux's. So each key has one code and each code at most one key.
namespace X11KeyCodes {

inline constexpr std::uint16_t kNoKeyCode = 0xFFFF;

/// `kNoKeyCode` for what is no key's number: below 8.
[[nodiscard]] std::uint16_t keyCodeForNativeKey(std::uint32_t nativeKey);
/// None for numbers that no key has. X11's core knows those up to 255 only.
[[nodiscard]] std::optional<std::uint32_t> nativeKeyForKeyCode(std::uint16_t keyCode);

} // namespace X11KeyCodes
