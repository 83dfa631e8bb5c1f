#include "app/shell/TrayController.h"

#include "app/core/Log.h"
#include "app/shell/AboutWindow.h"

#include <QApplication>
#include <QMenu>
#include <QSystemTrayIcon>

namespace qm {

TrayController::TrayController(QObject* parent)
    : QObject(parent)
    , m_menu(std::make_unique<QMenu>()) {
    m_menu->addAction(QStringLiteral("About Quillmark"), this, [this] { showAbout(); });
    m_menu->addSeparator();
    m_menu->addAction(QStringLiteral("Quit Quillmark"), QKeySequence(QStringLiteral("Ctrl+Q")),
                      qApp, &QCoreApplication::quit);

    m_icon = new QSystemTrayIcon(QIcon(QStringLiteral(":/quillmark/icons/quillmark.svg")), this);
    m_icon->setToolTip(QStringLiteral("Quillmark"));
    m_icon->setContextMenu(m_menu.get());
    // A left click opens the same menu, as users expect of a tray utility.
    connect(m_icon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason r) {
        if (r == QSystemTrayIcon::Trigger)
            m_menu->popup(QCursor::pos());
    });
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        qCWarning(lcApp).noquote()
            << QStringLiteral("Quillmark: no system tray is available; the shortcuts and the "
                              "quillmark command still work");
    m_icon->show();
}

TrayController::~TrayController() = default;

bool TrayController::isVisible() const {
    return m_icon && m_icon->isVisible();
}

void TrayController::showAbout() {
    if (!m_about)
        m_about = std::make_unique<AboutWindow>();
    m_about->show();
    m_about->raise();
    m_about->activateWindow();
}

} // namespace qm
