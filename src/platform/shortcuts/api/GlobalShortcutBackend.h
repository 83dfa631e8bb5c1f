#pragma once

#include <QKeyCombination>
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
    virtual int grab(std::uint32_t id, QKeyCombination keys) = 0;
    // The key as Qt names it (a Latin-1 key is its character: '4', Qt::Key_F5).
    int grab(std::uint32_t id, int key, Qt::KeyboardModifiers modifiers) {
        return grab(id, QKeyCombination(modifiers, Qt::Key(key)));
    }
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
    using GlobalShortcutBackend::grab;
    int grab(std::uint32_t, QKeyCombination) override { return -1; }
    void release(std::uint32_t) override {}
    QString unavailableReason() const override { return m_reason; }

private:
    QString m_reason;
};

} // namespace qm
