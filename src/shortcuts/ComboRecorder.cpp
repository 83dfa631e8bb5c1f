#include "shortcuts/ComboRecorder.h"

#include "base/Preferences.h"
#include "shortcuts/HotkeyManager.h"

#include <QCoreApplication>
#include <QKeyEvent>

namespace qm {

namespace {
// The key under a shifted character on a US layout ('$' is on '4'): a shortcut names the key,
// and the global grab matches keys, not characters.
Qt::Key unshifted(Qt::Key key) {
    static constexpr std::pair<char, char> pairs[] = {
        {'!', '1'},  {'@', '2'}, {'#', '3'},  {'$', '4'}, {'%', '5'}, {'^', '6'}, {'&', '7'},
        {'*', '8'},  {'(', '9'}, {')', '0'},  {'_', '-'}, {'+', '='}, {'{', '['}, {'}', ']'},
        {'|', '\\'}, {':', ';'}, {'"', '\''}, {'<', ','}, {'>', '.'}, {'?', '/'}, {'~', '`'}};
    for (const auto& [shifted, plain] : pairs)
        if (key == Qt::Key(shifted))
            return Qt::Key(plain);
    return key;
}

} // namespace

ComboRecorder::ComboRecorder(Preferences& preferences, HotkeyManager& hotkeys, QObject* parent)
    : QObject(parent)
    , m_preferences(preferences)
    , m_hotkeys(hotkeys) {}

ComboRecorder::~ComboRecorder() {
    if (m_monitoring)
        QCoreApplication::instance()->removeEventFilter(this);
}

void ComboRecorder::begin(HotkeyAction action) {
    end();
    m_hotkeys.unregisterAll();
    m_recordingAction = action;
    QCoreApplication::instance()->installEventFilter(this);
    m_monitoring = true;
    Q_EMIT recordingActionChanged();
}

void ComboRecorder::end() {
    if (m_monitoring) {
        QCoreApplication::instance()->removeEventFilter(this);
        m_monitoring = false;
    }
    const bool wasRecording = m_recordingAction.has_value();
    m_recordingAction.reset();
    if (wasRecording)
        Q_EMIT recordingActionChanged();
    m_preferences.postHotkeysChanged();
}

bool ComboRecorder::eventFilter(QObject* watched, QEvent* event) {
    if (!m_recordingAction)
        return QObject::eventFilter(watched, event);
    // Swallow shortcut matching too, so a recorded combo never triggers a menu action.
    if (event->type() == QEvent::ShortcutOverride) {
        event->accept();
        return true;
    }
    if (event->type() != QEvent::KeyPress)
        return QObject::eventFilter(watched, event);

    const auto* key = static_cast<QKeyEvent*>(event);
    if (key->key() == Qt::Key_Escape) {
        end();
        return true;
    }
    const Qt::KeyboardModifiers mods = key->modifiers();
    // Shift alone never makes a shortcut: it would steal a character from every program.
    if (!(mods & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)))
        return true;
    const Qt::Key pressed = unshifted(Qt::Key(key->key()));
    if (!isShortcutKey(pressed))
        return true;

    const HotkeyAction action = *m_recordingAction;
    m_preferences.setHotkey(HotkeyCombo(QKeyCombination(mods, pressed)), action);
    end();
    return true;
}

} // namespace qm
