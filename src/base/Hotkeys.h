#pragma once

#include <QKeyCombination>
#include <QKeySequence>
#include <QString>
#include <QStringList>
#include <array>
#include <map>
#include <optional>

namespace qm {

// The four global actions, in registration and display order.
enum class HotkeyAction { Region, Window, Fullscreen, Record };

inline constexpr std::array<HotkeyAction, 4> allHotkeyActions = {
    HotkeyAction::Region, HotkeyAction::Window, HotkeyAction::Fullscreen, HotkeyAction::Record};

QString rawValue(HotkeyAction action);
std::optional<HotkeyAction> hotkeyActionFromRaw(const QString& raw);

// Whether a shortcut can end in this key: a key Qt can name, not a modifier or lock key
// pressed on its own.
bool isShortcutKey(Qt::Key key);

// One global shortcut: a single chord of modifiers and one key. Stored as QKeySequence's
// portable text ("Ctrl+Shift+4"), so the settings file stays readable and editable by hand.
struct HotkeyCombo {
    Qt::Key key = Qt::Key_unknown;
    Qt::KeyboardModifiers modifiers;

    HotkeyCombo() = default;
    HotkeyCombo(QKeyCombination combination);

    // A stored or hand-written value: one chord, a real key, and Ctrl, Alt or Super among
    // its modifiers (Shift alone would take a character from every program). Surrounding
    // blanks and the case of the names do not matter.
    static std::optional<HotkeyCombo> fromText(const QString& text);

    QKeyCombination combination() const { return QKeyCombination(modifiers, key); }
    QKeySequence sequence() const { return QKeySequence(combination()); }
    // How it is stored: "Ctrl+Shift+4".
    QString portableText() const;
    // How the desktop shows it.
    QString nativeText() const;
    // One key cap per modifier, then the key: {"Ctrl", "Shift", "4"}.
    QStringList keyCaps() const;

    friend bool operator==(const HotkeyCombo& a, const HotkeyCombo& b) {
        return a.key == b.key && a.modifiers == b.modifiers;
    }
};

using HotkeyTable = std::map<HotkeyAction, HotkeyCombo>;

// The built-in shortcuts: Ctrl+Shift+4, 8, 9 and 6.
HotkeyCombo defaultHotkey(HotkeyAction action);

} // namespace qm
