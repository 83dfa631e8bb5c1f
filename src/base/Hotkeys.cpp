#include "base/Hotkeys.h"

namespace qm {

namespace {
constexpr Qt::KeyboardModifiers kChordModifiers =
    Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
} // namespace

bool isShortcutKey(Qt::Key key) {
    switch (key) {
    case Qt::Key_unknown:
    case Qt::Key_Shift:
    case Qt::Key_Control:
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
    case Qt::Key_Meta:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
    case Qt::Key_Hyper_L:
    case Qt::Key_Hyper_R:
    case Qt::Key_CapsLock:
    case Qt::Key_NumLock:
    case Qt::Key_ScrollLock:
        return false;
    default:
        return key != 0 && !QKeySequence(key).toString(QKeySequence::PortableText).isEmpty();
    }
}

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

HotkeyCombo::HotkeyCombo(QKeyCombination combination)
    : key(combination.key())
    , modifiers(combination.keyboardModifiers() & kChordModifiers) {}

std::optional<HotkeyCombo> HotkeyCombo::fromText(const QString& text) {
    const QKeySequence sequence =
        QKeySequence::fromString(text.trimmed(), QKeySequence::PortableText);
    if (sequence.count() != 1)
        return std::nullopt;
    const QKeyCombination chord = sequence[0];
    const Qt::Key key = chord.key();
    if (!isShortcutKey(key))
        return std::nullopt;
    if (!(chord.keyboardModifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)))
        return std::nullopt;
    return HotkeyCombo(chord);
}

QString HotkeyCombo::portableText() const {
    return sequence().toString(QKeySequence::PortableText);
}

QString HotkeyCombo::nativeText() const {
    return sequence().toString(QKeySequence::NativeText);
}

QStringList HotkeyCombo::keyCaps() const {
    QStringList caps;
    // The desktop's own order and names: Ctrl, Alt, Super (Meta), Shift.
    for (const Qt::KeyboardModifier m :
         {Qt::ControlModifier, Qt::AltModifier, Qt::MetaModifier, Qt::ShiftModifier})
        if (modifiers & m) {
            QString name =
                QKeySequence(QKeyCombination(m, Qt::Key_A)).toString(QKeySequence::NativeText);
            name.chop(2); // "+A"
            caps << name;
        }
    caps << QKeySequence(key).toString(QKeySequence::NativeText);
    return caps;
}

HotkeyCombo defaultHotkey(HotkeyAction action) {
    constexpr auto ctrlShift = Qt::ControlModifier | Qt::ShiftModifier;
    switch (action) {
    case HotkeyAction::Region:
        return HotkeyCombo(ctrlShift | Qt::Key_4);
    case HotkeyAction::Window:
        return HotkeyCombo(ctrlShift | Qt::Key_8);
    case HotkeyAction::Fullscreen:
        return HotkeyCombo(ctrlShift | Qt::Key_9);
    case HotkeyAction::Record:
        return HotkeyCombo(ctrlShift | Qt::Key_6);
    }
    return {};
}

} // namespace qm
