#pragma once

#include "ui/ToastView.h"

#include <QColor>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <chrono>

namespace qm {

class DesktopNotifications;

// Shows short messages near the bottom of the screen under the pointer, one at a time: a new
// toast replaces the current one at once. Toasts never take focus; only a toast with actions
// takes clicks.
class ToastCenter final : public QObject {
    Q_OBJECT
public:
    // The icon's tint.
    enum class Style { Plain, Accent, Error };

    // How long a toast stays fully visible.
    static constexpr std::chrono::milliseconds holdTime{2600};
    static constexpr std::chrono::milliseconds fadeIn{220};
    static constexpr std::chrono::milliseconds fadeOut{300};
    static constexpr int bottomMargin = 24; // points above the screen's usable bottom

    explicit ToastCenter(QObject* parent = nullptr, std::chrono::milliseconds hold = holdTime);
    ~ToastCenter() override;

    // iconName: a freedesktop icon name ("edit-copy", "document-save" …); an unknown name shows
    // the text alone.
    // With actions, the toast takes clicks and stays twice as long, so there is time to use it.
    void present(const QString& text, const QString& iconName, Style style = Style::Plain,
                 ToastActions actions = {});
    // The two toasts every save ends in. "Saved “name.png”", which shows the file in its
    // folder when clicked; "Not saved: <reason>", with a Save As… button when saveAs is given.
    void presentSaved(const QString& path);
    void presentNotSaved(const QString& reason, std::function<void()> saveAs = {});
    // Sends those two to the desktop's notifications instead (a click on one does what the
    // toast would); null for toasts again. The notifications must outlive this.
    void sendResultsTo(DesktopNotifications* notifications) { notifications_ = notifications; }
    // Fades a toast out and closes it.
    void dismiss(ToastView* window);

    // The toast now on screen, or null.
    ToastView* window() const { return window_; }
    // How long the toast on screen has before it starts to fade; zero when none is waiting.
    std::chrono::milliseconds timeLeft() const;

    static QColor tint(Style style);

private:
    QPointer<ToastView> window_;
    QTimer dismissTimer_;
    DesktopNotifications* notifications_ = nullptr;
    std::chrono::milliseconds hold_;
};

} // namespace qm
