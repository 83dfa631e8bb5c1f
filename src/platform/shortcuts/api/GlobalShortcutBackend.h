#pragma once

#include <QObject>
#include <QString>
#include <cstdint>
#include <memory>

namespace qm {

// System-wide key grabs. A backend reports presses of its grabbed keys by id, on the main
// thread, whatever window has the focus.
class GlobalShortcutBackend : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // 0 when the grab holds; otherwise the platform's status (an X error code, say).
    virtual int grab(std::uint32_t id, std::uint32_t keysym, Qt::KeyboardModifiers modifiers) = 0;
    virtual void release(std::uint32_t id) = 0;
    // Why there are no global shortcuts, in one sentence; empty when they work.
    virtual QString unavailableReason() const { return {}; }

Q_SIGNALS:
    void activated(std::uint32_t id);
};

// Refuses every grab and carries the reason shown to the user.
class NullGlobalShortcuts final : public GlobalShortcutBackend {
    Q_OBJECT
public:
    explicit NullGlobalShortcuts(QString reason, QObject* parent = nullptr)
        : GlobalShortcutBackend(parent)
        , m_reason(std::move(reason)) {}
    int grab(std::uint32_t, std::uint32_t, Qt::KeyboardModifiers) override { return -1; }
    void release(std::uint32_t) override {}
    QString unavailableReason() const override { return m_reason; }

private:
    QString m_reason;
};

} // namespace qm
