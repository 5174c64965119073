#include "platform/x11/X11KeyCodes.h"

#include <gtest/gtest.h>
#include <linux/input-event-codes.h>

#include <map>
#include <vector>

namespace {

constexpr std::uint32_t kOffset = 8;

/// The old numbers as their lists have them: runs of keys with consecutive codes.
struct CodeRun {
    std::uint16_t firstCode;
    std::vector<std::uint32_t> keys;
};

const CodeRun kRuns[] = {
    {0, {KEY_A, KEY_S, KEY_D, KEY_F, KEY_H, KEY_G, KEY_Z, KEY_X, KEY_C, KEY_V, KEY_102ND}},
    {11, {KEY_B, KEY_Q, KEY_W, KEY_E, KEY_R, KEY_Y, KEY_T}},
    {18, {KEY_1, KEY_2, KEY_3, KEY_4, KEY_6, KEY_5}},
    {24, {KEY_EQUAL, KEY_9, KEY_7, KEY_MINUS, KEY_8, KEY_0}},
    {30, {KEY_RIGHTBRACE, KEY_O, KEY_U, KEY_LEFTBRACE, KEY_I, KEY_P, KEY_ENTER}},
    {37, {KEY_L, KEY_J, KEY_APOSTROPHE, KEY_K, KEY_SEMICOLON, KEY_BACKSLASH}},
    {43, {KEY_COMMA, KEY_SLASH, KEY_N, KEY_M, KEY_DOT}},
    {48, {KEY_TAB, KEY_SPACE, KEY_GRAVE, KEY_BACKSPACE}},
    {53, {KEY_ESC, KEY_RIGHTMETA, KEY_LEFTMETA, KEY_LEFTSHIFT, KEY_CAPSLOCK}},
    {58, {KEY_LEFTALT, KEY_LEFTCTRL, KEY_RIGHTSHIFT, KEY_RIGHTALT, KEY_RIGHTCTRL, KEY_FN}},
    {64, {KEY_F17, KEY_KPDOT}},
    {67, {KEY_KPASTERISK}},
    {69, {KEY_KPPLUS}},
    {71, {KEY_NUMLOCK, KEY_VOLUMEUP, KEY_VOLUMEDOWN, KEY_MUTE, KEY_KPSLASH, KEY_KPENTER}},
    {78, {KEY_KPMINUS, KEY_F18, KEY_F19, KEY_KPEQUAL}},
    {82, {KEY_KP0, KEY_KP1, KEY_KP2, KEY_KP3, KEY_KP4, KEY_KP5, KEY_KP6, KEY_KP7}},
    {90, {KEY_F20, KEY_KP8, KEY_KP9, KEY_YEN, KEY_RO, KEY_KPCOMMA}},
    {96, {KEY_F5, KEY_F6, KEY_F7, KEY_F3, KEY_F8, KEY_F9, KEY_HANJA, KEY_F11}},
    {104, {KEY_HANGEUL, KEY_F13, KEY_F16, KEY_F14}},
    {109, {KEY_F10, KEY_COMPOSE, KEY_F12}},
    {113, {KEY_F15, KEY_INSERT, KEY_HOME, KEY_PAGEUP, KEY_DELETE, KEY_F4, KEY_END, KEY_F2}},
    {121, {KEY_PAGEDOWN, KEY_F1, KEY_LEFT, KEY_RIGHT, KEY_DOWN, KEY_UP}},
};

TEST(X11KeyCodes, AreTheOldNumbersWhereThereIsOne)
{
    std::map<std::uint32_t, std::uint16_t> codes;
    for (const CodeRun &run : kRuns)
        for (std::uint16_t code = run.firstCode; const std::uint32_t key : run.keys)
            codes[key] = code++;
    EXPECT_EQ(codes.size(), 120U);
    for (std::uint32_t key = 0; key < KEY_CNT; ++key) {
        const std::uint32_t expected = codes.contains(key) ? codes[key] : 256 + key;
        EXPECT_EQ(X11KeyCodes::keyCodeForNativeKey(key + kOffset), expected) << key;
    }
}

TEST(X11KeyCodes, LeadBackToTheirKeys)
{
    int keys = 0;
    for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
        const auto key = X11KeyCodes::nativeKeyForKeyCode(static_cast<std::uint16_t>(code));
        if (!key)
            continue;
        ++keys;
        EXPECT_EQ(X11KeyCodes::keyCodeForNativeKey(*key), code);
    }
    EXPECT_EQ(keys, KEY_CNT);
    for (const std::uint32_t none : {0U, 7U, KEY_CNT + kOffset, ~0U})
        EXPECT_EQ(X11KeyCodes::keyCodeForNativeKey(none), X11KeyCodes::kNoKeyCode) << none;
}

} // namespace
