#include "platform/x11/X11KeyCharacters.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr char16_t kFunctionKey = 0x10;
constexpr char16_t kF16 = 0xF713;
constexpr xkb_keysym_t kDeadHamza = 0xFE8D; // xkbcommon has it since 1.6 only.

struct Character {
    xkb_keysym_t symbol;
    char16_t character;
};

constexpr Character kNamedKeys[] = {
    {XKB_KEY_Left, 0x1C},          {XKB_KEY_KP_Left, 0x1C},      {XKB_KEY_Right, 0x1D},
    {XKB_KEY_KP_Right, 0x1D},      {XKB_KEY_Up, 0x1E},           {XKB_KEY_KP_Up, 0x1E},
    {XKB_KEY_Down, 0x1F},          {XKB_KEY_KP_Down, 0x1F},      {XKB_KEY_Home, 0xF729},
    {XKB_KEY_KP_Home, 0xF729},     {XKB_KEY_Begin, 0xF72A},      {XKB_KEY_KP_Begin, 0xF72A},
    {XKB_KEY_End, 0xF72B},         {XKB_KEY_KP_End, 0xF72B},     {XKB_KEY_Page_Up, 0xF72C},
    {XKB_KEY_KP_Page_Up, 0xF72C},  {XKB_KEY_Page_Down, 0xF72D},  {XKB_KEY_KP_Page_Down, 0xF72D},
    {XKB_KEY_Insert, 0xF746},      {XKB_KEY_KP_Insert, 0xF746},  {XKB_KEY_Help, 0xF746},
    {XKB_KEY_Delete, 0x7F},        {XKB_KEY_KP_Delete, 0x7F},    {XKB_KEY_Print, 0xF72E},
    {XKB_KEY_Scroll_Lock, 0xF72F}, {XKB_KEY_Pause, 0xF730},      {XKB_KEY_Menu, 0xF735},
    {XKB_KEY_Return, 0x0D},        {XKB_KEY_KP_Enter, 0x03},     {XKB_KEY_Tab, 0x09},
    {XKB_KEY_KP_Tab, 0x09},        {XKB_KEY_ISO_Left_Tab, 0x09}, {XKB_KEY_BackSpace, 0x08},
    {XKB_KEY_Escape, 0x1B},
};

// Accents that Unicode has only to be put on letters are shown as what looks like them.
constexpr Character kDeadKeys[] = {
    {XKB_KEY_dead_grave, u'`'},
    {XKB_KEY_dead_acute, u'´'},
    {XKB_KEY_dead_circumflex, u'^'},
    {XKB_KEY_dead_tilde, u'~'},
    {XKB_KEY_dead_macron, u'¯'},
    {XKB_KEY_dead_breve, u'˘'},
    {XKB_KEY_dead_abovedot, u'˙'},
    {XKB_KEY_dead_diaeresis, u'¨'},
    {XKB_KEY_dead_abovering, u'˚'},
    {XKB_KEY_dead_doubleacute, u'˝'},
    {XKB_KEY_dead_caron, u'ˇ'},
    {XKB_KEY_dead_cedilla, u'¸'},
    {XKB_KEY_dead_ogonek, u'˛'},
    {XKB_KEY_dead_iota, u'ͺ'},
    {XKB_KEY_dead_voiced_sound, u'゛'},
    {XKB_KEY_dead_semivoiced_sound, u'゜'},
    {XKB_KEY_dead_belowdot, u'.'},
    {XKB_KEY_dead_hook, u'ˀ'},
    {XKB_KEY_dead_horn, u'ʼ'},
    {XKB_KEY_dead_stroke, u'/'},
    {XKB_KEY_dead_abovecomma, u'᾿'},
    {XKB_KEY_dead_abovereversedcomma, u'῾'},
    {XKB_KEY_dead_doublegrave, u'˵'},
    {XKB_KEY_dead_belowring, u'˳'},
    {XKB_KEY_dead_belowmacron, u'ˍ'},
    {XKB_KEY_dead_belowcircumflex, u'ꞈ'},
    {XKB_KEY_dead_belowtilde, u'˷'},
    {XKB_KEY_dead_belowbreve, u'‿'},
    {XKB_KEY_dead_belowdiaeresis, u'‥'},
    {XKB_KEY_dead_invertedbreve, u'⁀'},
    {XKB_KEY_dead_belowcomma, u','},
    {XKB_KEY_dead_currency, u'¤'},
    {XKB_KEY_dead_a, u'a'},
    {XKB_KEY_dead_A, u'A'},
    {XKB_KEY_dead_e, u'e'},
    {XKB_KEY_dead_E, u'E'},
    {XKB_KEY_dead_i, u'i'},
    {XKB_KEY_dead_I, u'I'},
    {XKB_KEY_dead_o, u'o'},
    {XKB_KEY_dead_O, u'O'},
    {XKB_KEY_dead_u, u'u'},
    {XKB_KEY_dead_U, u'U'},
    {XKB_KEY_dead_small_schwa, u'ə'},
    {XKB_KEY_dead_capital_schwa, u'Ə'},
    {XKB_KEY_dead_greek, u'µ'},
    {kDeadHamza, u'ء'},
    {XKB_KEY_dead_lowline, u'_'},
    {XKB_KEY_dead_aboveverticalline, u'ˈ'},
    {XKB_KEY_dead_belowverticalline, u'ˌ'},
    {XKB_KEY_dead_longsolidusoverlay, u'/'},
};

template <std::size_t count> QString find(const Character (&table)[count], xkb_keysym_t symbol)
{
    const auto *found = std::find_if(std::begin(table), std::end(table),
                                     [symbol](const auto &row) { return row.symbol == symbol; });
    return found == std::end(table) ? QString() : QString(QChar(found->character));
}

} // namespace

QString X11KeyCharacters::ofSymbol(xkb_keysym_t symbol)
{
    if (symbol >= XKB_KEY_F1 && symbol <= XKB_KEY_F35)
        return QChar(symbol == XKB_KEY_F16 ? kF16 : kFunctionKey);
    if (QString named = find(kNamedKeys, symbol); !named.isEmpty())
        return named;
    if (QString accent = find(kDeadKeys, symbol); !accent.isEmpty())
        return accent;
    const char32_t character = xkb_keysym_to_utf32(symbol);
    const bool isControl = character < 0x20 || (character >= 0x7F && character < 0xA0);
    return isControl ? QString() : QString::fromUcs4(&character, 1);
}

QString X11KeyCharacters::ofFunctionKey(std::uint16_t keyCode)
{
    switch (keyCode) {
    case 106:
        return QChar(kF16);
    case 105: // F13, F14, F15, F17, F18, F19, F20.
    case 107:
    case 113:
    case 64:
    case 79:
    case 80:
    case 90:
        return QChar(kFunctionKey);
    default:
        return {};
    }
}

bool X11KeyCharacters::isModifier(xkb_keysym_t symbol)
{
    return (symbol >= XKB_KEY_Shift_L && symbol <= XKB_KEY_Hyper_R)
        || (symbol >= XKB_KEY_ISO_Lock && symbol <= XKB_KEY_ISO_Level5_Lock)
        || symbol == XKB_KEY_Num_Lock || symbol == XKB_KEY_Mode_switch;
}
