#include "shortcuts/HotkeyManager.h"

#include "base/Log.h"

#include <limits>

namespace qm {

HotkeyManager::HotkeyManager(GlobalShortcutBackend& backend, QObject* parent)
    : QObject(parent)
    , m_backend(backend) {
    connect(&m_backend, &GlobalShortcutBackend::activated, this, [this](std::uint32_t id) {
        // Ids alone identify shortcuts; a press racing an unregister finds no handler.
        if (const auto it = m_handlers.find(id); it != m_handlers.end())
            it->second();
    });
}

bool HotkeyManager::registerHotkey(const HotkeyCombo& combo, std::function<void()> handler) {
    if (m_nextID == std::numeric_limits<std::uint32_t>::max())
        qFatal("Quillmark: hotkey ids exhausted");
    const std::uint32_t id = m_nextID++;

    const int status = m_backend.grab(id, combo.combination());
    if (status != 0) {
        qCWarning(lcHotkey).noquote()
            << QStringLiteral("Quillmark: failed to register hotkey id=%1 status=%2")
                   .arg(id)
                   .arg(status);
        return false;
    }
    m_handlers[id] = std::move(handler);
    m_registered.push_back(id);
    return true;
}

void HotkeyManager::unregisterAll() {
    for (std::uint32_t id : m_registered)
        m_backend.release(id);
    m_registered.clear();
    m_handlers.clear();
}

} // namespace qm
