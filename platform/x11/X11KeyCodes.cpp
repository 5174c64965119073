#include "platform/x11/X11KeyCodes.h"

#include <linux/input-event-codes.h>

#include <array>

namespace {

constexpr std::uint32_t kNativeOffset = 8; // X keeps the first eight numbers free.
constexpr std::uint32_t kFirstWithoutOldNumber = 0x100;

struct Key {
    std::uint16_t linuxCode;
    std::uint16_t keyCode;
};

constexpr Key kKeys[] = {
    // The letters, the digits and what stands around them.
    {KEY_A, 0},
    {KEY_S, 1},
    {KEY_D, 2},
    {KEY_F, 3},
    {KEY_H, 4},
    {KEY_G, 5},
    {KEY_Z, 6},
    {KEY_X, 7},
    {KEY_C, 8},
    {KEY_V, 9},
    {KEY_102ND, 10},
    {KEY_B, 11},
    {KEY_Q, 12},
    {KEY_W, 13},
    {KEY_E, 14},
    {KEY_R, 15},
    {KEY_Y, 16},
    {KEY_T, 17},
    {KEY_1, 18},
    {KEY_2, 19},
    {KEY_3, 20},
    {KEY_4, 21},
    {KEY_6, 22},
    {KEY_5, 23},
    {KEY_EQUAL, 24},
    {KEY_9, 25},
    {KEY_7, 26},
    {KEY_MINUS, 27},
    {KEY_8, 28},
    {KEY_0, 29},
    {KEY_RIGHTBRACE, 30},
    {KEY_O, 31},
    {KEY_U, 32},
    {KEY_LEFTBRACE, 33},
    {KEY_I, 34},
    {KEY_P, 35},
    {KEY_ENTER, 36},
    {KEY_L, 37},
    {KEY_J, 38},
    {KEY_APOSTROPHE, 39},
    {KEY_K, 40},
    {KEY_SEMICOLON, 41},
    {KEY_BACKSLASH, 42},
    {KEY_COMMA, 43},
    {KEY_SLASH, 44},
    {KEY_N, 45},
    {KEY_M, 46},
    {KEY_DOT, 47},
    {KEY_TAB, 48},
    {KEY_SPACE, 49},
    {KEY_GRAVE, 50},
    {KEY_BACKSPACE, 51},
    {KEY_ESC, 53},
    // Modifiers.
    {KEY_RIGHTMETA, 54},
    {KEY_LEFTMETA, 55},
    {KEY_LEFTSHIFT, 56},
    {KEY_CAPSLOCK, 57},
    {KEY_LEFTALT, 58},
    {KEY_LEFTCTRL, 59},
    {KEY_RIGHTSHIFT, 60},
    {KEY_RIGHTALT, 61},
    {KEY_RIGHTCTRL, 62},
    {KEY_FN, 63},
    // The keypad; Clear is where Num Lock is.
    {KEY_KPDOT, 65},
    {KEY_KPASTERISK, 67},
    {KEY_KPPLUS, 69},
    {KEY_NUMLOCK, 71},
    {KEY_KPSLASH, 75},
    {KEY_KPENTER, 76},
    {KEY_KPMINUS, 78},
    {KEY_KPEQUAL, 81},
    {KEY_KP0, 82},
    {KEY_KP1, 83},
    {KEY_KP2, 84},
    {KEY_KP3, 85},
    {KEY_KP4, 86},
    {KEY_KP5, 87},
    {KEY_KP6, 88},
    {KEY_KP7, 89},
    {KEY_KP8, 91},
    {KEY_KP9, 92},
    {KEY_KPCOMMA, 95},
    // The sound's volume.
    {KEY_VOLUMEUP, 72},
    {KEY_VOLUMEDOWN, 73},
    {KEY_MUTE, 74},
    // Keys of Japanese and Korean keyboards: yen, underscore, Eisu, Kana.
    {KEY_YEN, 93},
    {KEY_RO, 94},
    {KEY_HANJA, 102},
    {KEY_HANGEUL, 104},
    // Function keys.
    {KEY_F1, 122},
    {KEY_F2, 120},
    {KEY_F3, 99},
    {KEY_F4, 118},
    {KEY_F5, 96},
    {KEY_F6, 97},
    {KEY_F7, 98},
    {KEY_F8, 100},
    {KEY_F9, 101},
    {KEY_F10, 109},
    {KEY_F11, 103},
    {KEY_F12, 111},
    {KEY_F13, 105},
    {KEY_F14, 107},
    {KEY_F15, 113},
    {KEY_F16, 106},
    {KEY_F17, 64},
    {KEY_F18, 79},
    {KEY_F19, 80},
    {KEY_F20, 90},
    // Moving around; Help is where Insert is.
    {KEY_COMPOSE, 110},
    {KEY_INSERT, 114},
    {KEY_HOME, 115},
    {KEY_PAGEUP, 116},
    {KEY_DELETE, 117},
    {KEY_END, 119},
    {KEY_PAGEDOWN, 121},
    {KEY_LEFT, 123},
    {KEY_RIGHT, 124},
    {KEY_DOWN, 125},
    {KEY_UP, 126},
};

constexpr std::uint16_t kUnused = 0xFFFF;

constexpr auto kKeyCodes = [] {
    std::array<std::uint16_t, KEY_CNT> result = {};
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = static_cast<std::uint16_t>(kFirstWithoutOldNumber + i);
    for (const Key &key : kKeys)
        result[key.linuxCode] = key.keyCode;
    return result;
}();

constexpr auto kLinuxCodes = [] {
    std::array<std::uint16_t, kFirstWithoutOldNumber + KEY_CNT> result = {};
    result.fill(kUnused);
    for (std::size_t i = 0; i < kKeyCodes.size(); ++i)
        result[kKeyCodes[i]] = static_cast<std::uint16_t>(i);
    return result;
}();

} // namespace

std::uint16_t X11KeyCodes::keyCodeForNativeKey(std::uint32_t nativeKey)
{
    // Below the offset the difference wraps around, and is too large as well.
    const std::uint32_t linuxCode = nativeKey - kNativeOffset;
    return linuxCode < kKeyCodes.size() ? kKeyCodes[linuxCode] : kNoKeyCode;
}

std::optional<std::uint32_t> X11KeyCodes::nativeKeyForKeyCode(std::uint16_t keyCode)
{
    if (keyCode >= kLinuxCodes.size() || kLinuxCodes[keyCode] == kUnused)
        return {};
    return kLinuxCodes[keyCode] + kNativeOffset;
}
