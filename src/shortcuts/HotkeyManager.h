#pragma once

#include "base/Hotkeys.h"
#include "platform/shortcuts/api/GlobalShortcutBackend.h"

#include <QObject>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

namespace qm {

// Registers global shortcuts and runs their handlers on the main thread. Ids grow for the life of
// the process and are never reused.
class HotkeyManager : public QObject {
    Q_OBJECT
public:
    explicit HotkeyManager(GlobalShortcutBackend& backend, QObject* parent = nullptr);

    // False (and a log line) when the platform refuses the shortcut, e.g. another program
    // holds it; the shortcut then stays inactive.
    bool registerHotkey(const HotkeyCombo& combo, std::function<void()> handler);
    void unregisterAll();

    std::uint32_t nextID() const { return m_nextID; }
    const std::vector<std::uint32_t>& registered() const { return m_registered; }
    GlobalShortcutBackend& backend() const { return m_backend; }

private:
    GlobalShortcutBackend& m_backend;
    std::map<std::uint32_t, std::function<void()>> m_handlers;
    std::vector<std::uint32_t> m_registered;
    std::uint32_t m_nextID = 1;
};

} // namespace qm
