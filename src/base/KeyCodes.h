#pragma once

#include "base/Hotkeys.h"

#include <QKeySequence>
#include <QString>
#include <cstdint>
#include <optional>

// Shortcuts are stored with the virtual key codes and modifier bits of their original format;
// this table maps them to Qt keys and X keysyms and back.
namespace qm::keys {

struct KeyInfo {
    std::uint32_t storedCode; // the stored virtual key code
    Qt::Key qtKey;
    std::uint32_t keysym; // X keysym of the unshifted key
};

std::optional<KeyInfo> fromStoredCode(std::uint32_t code);
std::optional<KeyInfo> fromQtKey(int qtKey);
// The key under a shifted character on a US layout ('$' → '4'), which is what a shortcut
// names; other keys come back unchanged.
int unshiftedQtKey(int qtKey);

// Ctrl ↔ command, Shift ↔ shift, Alt ↔ option, Super ↔ control.
Qt::KeyboardModifiers qtModifiers(std::uint32_t carbonModifiers);
std::uint32_t carbonModifiers(Qt::KeyboardModifiers modifiers);

// The label of a key alone, as a shortcut shows it ("4", "Space", "F5", "↩"); nothing for
// keys that cannot make a shortcut.
std::optional<QString> keyDisplay(std::uint32_t storedCode);

// The shortcut as the desktop writes it: "Ctrl+Shift+4". Empty for an unknown key code.
QKeySequence keySequence(const HotkeyCombo& combo);
QString shortcutText(const HotkeyCombo& combo);

} // namespace qm::keys
