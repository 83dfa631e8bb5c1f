#pragma once

#include "platform/shortcuts/api/GlobalShortcutBackend.h"

#include <map>
#include <memory>
#include <vector>

namespace qm {

// Passive key grabs on the root window over a connection of our own, so presses reach us
// whichever program has the focus. Each shortcut is grabbed once for every combination of
// Caps Lock and Num Lock, which X treats as modifiers of their own.
class X11GlobalShortcuts final : public GlobalShortcutBackend {
    Q_OBJECT
public:
    static std::unique_ptr<X11GlobalShortcuts> connect(QObject* parent = nullptr);
    ~X11GlobalShortcuts() override;

    using GlobalShortcutBackend::grab;
    int grab(std::uint32_t id, QKeyCombination keys) override;
    void release(std::uint32_t id) override;

private:
    struct Connection;
    struct Grab {
        std::vector<std::uint8_t> keycodes;
        std::uint16_t modifiers;
    };
    X11GlobalShortcuts(std::unique_ptr<Connection> connection, QObject* parent);
    void readEvents();
    void ungrab(const Grab& grab);

    std::unique_ptr<Connection> m_connection;
    std::map<std::uint32_t, Grab> m_grabs;
};

} // namespace qm
