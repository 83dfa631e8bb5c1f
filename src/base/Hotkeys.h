#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <array>
#include <cstdint>
#include <map>
#include <optional>

namespace qm {

// The four global actions, in registration and display order.
enum class HotkeyAction { Region, Window, Fullscreen, Record };

inline constexpr std::array<HotkeyAction, 4> allHotkeyActions = {
    HotkeyAction::Region, HotkeyAction::Window, HotkeyAction::Fullscreen, HotkeyAction::Record};

QString rawValue(HotkeyAction action);
std::optional<HotkeyAction> hotkeyActionFromRaw(const QString& raw);

// Modifier bits as stored: the Carbon layout, kept so existing shortcut tables load unchanged.
namespace CarbonModifier {
inline constexpr std::uint32_t Command = 0x100; // Ctrl on Linux
inline constexpr std::uint32_t Shift = 0x200;
inline constexpr std::uint32_t Option = 0x800;   // Alt
inline constexpr std::uint32_t Control = 0x1000; // Super
} // namespace CarbonModifier

struct HotkeyCombo {
    std::uint32_t keyCode = 0;         // stored virtual key code
    std::uint32_t carbonModifiers = 0; // CarbonModifier bits
    QString keyDisplay;                // the key alone: "4", "Space", "F5", "↩"

    // Modifier glyphs in their fixed order: control, option, shift, command.
    QStringList modifierSymbols() const;

    friend bool operator==(const HotkeyCombo&, const HotkeyCombo&) = default;
};

using HotkeyTable = std::map<HotkeyAction, HotkeyCombo>;

// The built-in shortcuts: Ctrl+Shift+4, 8, 9 and 6 (stored as shift + command).
HotkeyCombo defaultHotkey(HotkeyAction action);

// "hotkeys.v1": a flat JSON array alternating an action's raw value and its combo object.
QByteArray encodeHotkeyTable(const HotkeyTable& table);
// Any order, any subset; malformed data yields nothing.
std::optional<HotkeyTable> decodeHotkeyTable(const QByteArray& json);

} // namespace qm
