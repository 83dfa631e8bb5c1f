#pragma once

#include <QObject>
#include <QPointer>
#include <memory>

class QMenu;
class QSystemTrayIcon;

namespace qm {

class AboutWindow;

// The program's only permanent presence: the tray icon and its menu. Without a tray host the
// program keeps running (shortcuts and the command line still work) and says so in the log.
class TrayController : public QObject {
    Q_OBJECT
public:
    explicit TrayController(QObject* parent = nullptr);
    ~TrayController() override;

    QMenu* menu() const { return m_menu.get(); }
    bool isVisible() const;
    void showAbout();

private:
    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon* m_icon = nullptr;
    std::unique_ptr<AboutWindow> m_about;
};

} // namespace qm
