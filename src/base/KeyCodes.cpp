#include "base/KeyCodes.h"

#include <array>

namespace qm::keys {

namespace {
// X keysyms for the non-Latin-1 keys (Latin-1 keysyms equal the lower-case character).
constexpr std::uint32_t XK_BackSpace = 0xff08, XK_Tab = 0xff09, XK_Return = 0xff0d,
                        XK_Escape = 0xff1b, XK_Home = 0xff50, XK_Left = 0xff51, XK_Up = 0xff52,
                        XK_Right = 0xff53, XK_Down = 0xff54, XK_Prior = 0xff55, XK_Next = 0xff56,
                        XK_End = 0xff57, XK_Print = 0xff61, XK_Help = 0xff6a, XK_F1 = 0xffbe,
                        XK_Delete = 0xffff;

constexpr KeyInfo table[] = {
    {0, Qt::Key_A, 'a'},
    {1, Qt::Key_S, 's'},
    {2, Qt::Key_D, 'd'},
    {3, Qt::Key_F, 'f'},
    {4, Qt::Key_H, 'h'},
    {5, Qt::Key_G, 'g'},
    {6, Qt::Key_Z, 'z'},
    {7, Qt::Key_X, 'x'},
    {8, Qt::Key_C, 'c'},
    {9, Qt::Key_V, 'v'},
    {11, Qt::Key_B, 'b'},
    {12, Qt::Key_Q, 'q'},
    {13, Qt::Key_W, 'w'},
    {14, Qt::Key_E, 'e'},
    {15, Qt::Key_R, 'r'},
    {16, Qt::Key_Y, 'y'},
    {17, Qt::Key_T, 't'},
    {18, Qt::Key_1, '1'},
    {19, Qt::Key_2, '2'},
    {20, Qt::Key_3, '3'},
    {21, Qt::Key_4, '4'},
    {22, Qt::Key_6, '6'},
    {23, Qt::Key_5, '5'},
    {24, Qt::Key_Equal, '='},
    {25, Qt::Key_9, '9'},
    {26, Qt::Key_7, '7'},
    {27, Qt::Key_Minus, '-'},
    {28, Qt::Key_8, '8'},
    {29, Qt::Key_0, '0'},
    {30, Qt::Key_BracketRight, ']'},
    {31, Qt::Key_O, 'o'},
    {32, Qt::Key_U, 'u'},
    {33, Qt::Key_BracketLeft, '['},
    {34, Qt::Key_I, 'i'},
    {35, Qt::Key_P, 'p'},
    {36, Qt::Key_Return, XK_Return},
    {37, Qt::Key_L, 'l'},
    {38, Qt::Key_J, 'j'},
    {39, Qt::Key_Apostrophe, '\''},
    {40, Qt::Key_K, 'k'},
    {41, Qt::Key_Semicolon, ';'},
    {42, Qt::Key_Backslash, '\\'},
    {43, Qt::Key_Comma, ','},
    {44, Qt::Key_Slash, '/'},
    {45, Qt::Key_N, 'n'},
    {46, Qt::Key_M, 'm'},
    {47, Qt::Key_Period, '.'},
    {48, Qt::Key_Tab, XK_Tab},
    {49, Qt::Key_Space, ' '},
    {50, Qt::Key_QuoteLeft, '`'},
    {51, Qt::Key_Backspace, XK_BackSpace},
    {53, Qt::Key_Escape, XK_Escape},
    {122, Qt::Key_F1, XK_F1},
    {120, Qt::Key_F2, XK_F1 + 1},
    {99, Qt::Key_F3, XK_F1 + 2},
    {118, Qt::Key_F4, XK_F1 + 3},
    {96, Qt::Key_F5, XK_F1 + 4},
    {97, Qt::Key_F6, XK_F1 + 5},
    {98, Qt::Key_F7, XK_F1 + 6},
    {100, Qt::Key_F8, XK_F1 + 7},
    {101, Qt::Key_F9, XK_F1 + 8},
    {109, Qt::Key_F10, XK_F1 + 9},
    {103, Qt::Key_F11, XK_F1 + 10},
    {111, Qt::Key_F12, XK_F1 + 11},
    // F13 sits where PC keyboards have Print Screen.
    {105, Qt::Key_Print, XK_Print},
    {107, Qt::Key_F14, XK_F1 + 13},
    {113, Qt::Key_F15, XK_F1 + 14},
    {106, Qt::Key_F16, XK_F1 + 15},
    {64, Qt::Key_F17, XK_F1 + 16},
    {79, Qt::Key_F18, XK_F1 + 17},
    {80, Qt::Key_F19, XK_F1 + 18},
    {90, Qt::Key_F20, XK_F1 + 19},
    {114, Qt::Key_Help, XK_Help},
    {115, Qt::Key_Home, XK_Home},
    {116, Qt::Key_PageUp, XK_Prior},
    {117, Qt::Key_Delete, XK_Delete},
    {119, Qt::Key_End, XK_End},
    {121, Qt::Key_PageDown, XK_Next},
    {123, Qt::Key_Left, XK_Left},
    {124, Qt::Key_Right, XK_Right},
    {125, Qt::Key_Down, XK_Down},
    {126, Qt::Key_Up, XK_Up},
};
} // namespace

std::optional<KeyInfo> fromStoredCode(std::uint32_t code) {
    for (const KeyInfo& k : table)
        if (k.storedCode == code)
            return k;
    return std::nullopt;
}

std::optional<KeyInfo> fromQtKey(int qtKey) {
    for (const KeyInfo& k : table)
        if (k.qtKey == qtKey)
            return k;
    // The F13 of other keyboards is the same key as Print.
    if (qtKey == Qt::Key_F13)
        return fromQtKey(Qt::Key_Print);
    return std::nullopt;
}

int unshiftedQtKey(int qtKey) {
    static constexpr std::pair<char16_t, char16_t> shifted[] = {
        {u'!', u'1'}, {u'@', u'2'}, {u'#', u'3'}, {u'$', u'4'},  {u'%', u'5'}, {u'^', u'6'},
        {u'&', u'7'}, {u'*', u'8'}, {u'(', u'9'}, {u')', u'0'},  {u'_', u'-'}, {u'+', u'='},
        {u'{', u'['}, {u'}', u']'}, {u':', u';'}, {u'"', u'\''}, {u'<', u','}, {u'>', u'.'},
        {u'?', u'/'}, {u'~', u'`'}, {u'|', u'\\'}};
    for (const auto& [from, to] : shifted)
        if (qtKey == from)
            return to;
    return qtKey;
}

Qt::KeyboardModifiers qtModifiers(std::uint32_t carbon) {
    Qt::KeyboardModifiers m;
    if (carbon & CarbonModifier::Command)
        m |= Qt::ControlModifier;
    if (carbon & CarbonModifier::Shift)
        m |= Qt::ShiftModifier;
    if (carbon & CarbonModifier::Option)
        m |= Qt::AltModifier;
    if (carbon & CarbonModifier::Control)
        m |= Qt::MetaModifier;
    return m;
}

std::uint32_t carbonModifiers(Qt::KeyboardModifiers m) {
    std::uint32_t carbon = 0;
    if (m & Qt::ControlModifier)
        carbon |= CarbonModifier::Command;
    if (m & Qt::ShiftModifier)
        carbon |= CarbonModifier::Shift;
    if (m & Qt::AltModifier)
        carbon |= CarbonModifier::Option;
    if (m & Qt::MetaModifier)
        carbon |= CarbonModifier::Control;
    return carbon;
}

std::optional<QString> keyDisplay(std::uint32_t code) {
    switch (code) {
    case 49:
        return QStringLiteral("Space");
    case 36:
        return QStringLiteral("↩");
    case 48:
        return QStringLiteral("⇥");
    case 51:
        return QStringLiteral("⌫");
    case 117:
        return QStringLiteral("⌦");
    case 123:
        return QStringLiteral("←");
    case 124:
        return QStringLiteral("→");
    case 125:
        return QStringLiteral("↓");
    case 126:
        return QStringLiteral("↑");
    default:
        break;
    }
    const auto key = fromStoredCode(code);
    if (!key)
        return std::nullopt;
    if (key->qtKey >= Qt::Key_F1 && key->qtKey <= Qt::Key_F35)
        return QStringLiteral("F%1").arg(key->qtKey - Qt::Key_F1 + 1);
    if (key->qtKey == Qt::Key_Print)
        return QStringLiteral("F13");
    if (key->keysym > 0x20 && key->keysym < 0x7f)
        return QString(QChar(char16_t(key->keysym))).toUpper();
    return std::nullopt;
}

QKeySequence keySequence(const HotkeyCombo& combo) {
    const auto key = fromStoredCode(combo.keyCode);
    if (!key)
        return {};
    return QKeySequence(QKeyCombination(qtModifiers(combo.carbonModifiers), key->qtKey));
}

QString shortcutText(const HotkeyCombo& combo) {
    return keySequence(combo).toString(QKeySequence::NativeText);
}

} // namespace qm::keys
