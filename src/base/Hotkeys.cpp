#include "base/Hotkeys.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace qm {

QString rawValue(HotkeyAction action) {
    switch (action) {
    case HotkeyAction::Region:
        return QStringLiteral("region");
    case HotkeyAction::Window:
        return QStringLiteral("window");
    case HotkeyAction::Fullscreen:
        return QStringLiteral("fullscreen");
    case HotkeyAction::Record:
        return QStringLiteral("record");
    }
    return {};
}

std::optional<HotkeyAction> hotkeyActionFromRaw(const QString& raw) {
    for (HotkeyAction a : allHotkeyActions)
        if (rawValue(a) == raw)
            return a;
    return std::nullopt;
}

QStringList HotkeyCombo::modifierSymbols() const {
    QStringList symbols;
    if (carbonModifiers & CarbonModifier::Control)
        symbols << QStringLiteral("⌃");
    if (carbonModifiers & CarbonModifier::Option)
        symbols << QStringLiteral("⌥");
    if (carbonModifiers & CarbonModifier::Shift)
        symbols << QStringLiteral("⇧");
    if (carbonModifiers & CarbonModifier::Command)
        symbols << QStringLiteral("⌘");
    return symbols;
}

HotkeyCombo defaultHotkey(HotkeyAction action) {
    constexpr std::uint32_t shiftCommand = CarbonModifier::Shift | CarbonModifier::Command;
    switch (action) {
    case HotkeyAction::Region:
        return {21, shiftCommand, QStringLiteral("4")};
    case HotkeyAction::Window:
        return {28, shiftCommand, QStringLiteral("8")};
    case HotkeyAction::Fullscreen:
        return {25, shiftCommand, QStringLiteral("9")};
    case HotkeyAction::Record:
        return {22, shiftCommand, QStringLiteral("6")};
    }
    return {};
}

QByteArray encodeHotkeyTable(const HotkeyTable& table) {
    QJsonArray array;
    for (const auto& [action, combo] : table) {
        array.append(rawValue(action));
        array.append(QJsonObject{{QStringLiteral("keyCode"), qint64(combo.keyCode)},
                                 {QStringLiteral("carbonModifiers"), qint64(combo.carbonModifiers)},
                                 {QStringLiteral("keyDisplay"), combo.keyDisplay}});
    }
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

namespace {
std::optional<std::uint32_t> readUInt32(const QJsonValue& v) {
    if (!v.isDouble())
        return std::nullopt;
    const double d = v.toDouble();
    if (d < 0 || d > double(UINT32_MAX) || d != double(qint64(d)))
        return std::nullopt;
    return std::uint32_t(d);
}
} // namespace

std::optional<HotkeyTable> decodeHotkeyTable(const QByteArray& json) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray())
        return std::nullopt;
    const QJsonArray array = doc.array();
    if (array.size() % 2 != 0)
        return std::nullopt;
    HotkeyTable table;
    for (qsizetype i = 0; i < array.size(); i += 2) {
        const auto action = hotkeyActionFromRaw(array.at(i).toString());
        if (!array.at(i).isString() || !action || !array.at(i + 1).isObject())
            return std::nullopt;
        const QJsonObject o = array.at(i + 1).toObject();
        const auto keyCode = readUInt32(o.value(QStringLiteral("keyCode")));
        const auto modifiers = readUInt32(o.value(QStringLiteral("carbonModifiers")));
        const QJsonValue display = o.value(QStringLiteral("keyDisplay"));
        if (!keyCode || !modifiers || !display.isString())
            return std::nullopt;
        table[*action] = HotkeyCombo{*keyCode, *modifiers, display.toString()};
    }
    return table;
}

} // namespace qm
