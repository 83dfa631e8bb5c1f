#include "media/ui/TrimWindowController.h"

#include "media/player/PlaybackEngine.h"
#include "media/player/TrimSession.h"
#include "media/ui/TrimView.h"
#include "ui/ClosingWindow.h"

#include <QApplication>
#include <QBoxLayout>
#include <QCloseEvent>
#include <QFileInfo>
#include <QWidget>

namespace qm::media::ui {

class TrimWindowController::Window : public ClosingWindow {
public:
    using ClosingWindow::ClosingWindow;
};

TrimWindowController::TrimWindowController(const QString& moviePath, bool sound)
    : m_path(moviePath) {
    auto engine = std::make_unique<player::PlaybackEngine>(moviePath, sound);
    m_engine = engine.get();
    m_session = std::make_unique<player::TrimSession>(moviePath, std::move(engine));
}

TrimWindowController::~TrimWindowController() {
    m_window.reset(); // the view refers to the session
}

QWidget* TrimWindowController::window() const {
    return m_window.get();
}

void TrimWindowController::show() {
    if (!m_window) {
        m_window = std::make_unique<Window>([this] { windowClosed(); });
        m_window->setWindowTitle(QStringLiteral("Trim Recording — ") +
                                 QFileInfo(m_path).fileName());
        m_window->setMinimumSize(680, 480);
        m_window->resize(960, 660);
        m_view = new TrimView(*m_session, m_engine, true, m_window.get());
        m_view->onDone = [this] { close(); };
        auto* layout = new QVBoxLayout(m_window.get());
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(m_view);
        m_session->load();
    }
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
    m_view->setFocus();
}

void TrimWindowController::close() {
    if (m_window)
        m_window->close();
}

void TrimWindowController::windowClosed() {
    m_session->teardown();
    // Told after the window has finished closing, so the owner may delete us in onClosed.
    std::weak_ptr<bool> alive = m_alive;
    QMetaObject::invokeMethod(
        qApp,
        [this, alive] {
            if (!alive.expired() && onClosed)
                onClosed();
        },
        Qt::QueuedConnection);
}

} // namespace qm::media::ui
