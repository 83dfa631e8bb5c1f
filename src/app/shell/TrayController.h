#pragma once

#include <QDateTime>
#include <QHash>
#include <QIcon>
#include <QObject>
#include <QPointer>
#include <functional>
#include <memory>

class QMenu;
class QSystemTrayIcon;

namespace qm {

class AboutWindow;
class AppModel;
class Preferences;

// The program's only permanent presence: the tray icon and its menu. Without a tray host the
// program keeps running (shortcuts and the command line still work) and says so in the log.
class TrayController : public QObject {
    Q_OBJECT
public:
    // openImage: what choosing a recent capture does with its file.
    TrayController(AppModel& model, Preferences& preferences,
                   std::function<void(const QString&)> openImage, QObject* parent = nullptr);
    ~TrayController() override;

    QMenu* menu() const { return m_menu.get(); }
    bool isVisible() const;
    void showAbout();

    // The menu's content as it would show now; rebuilt before every appearance.
    void rebuildMenu();

private:
    void refreshThumbnails();
    void addRecordingItems(QMenu* menu);
    void showRecordingState();

    AppModel& m_model;
    Preferences& m_preferences;
    std::function<void(const QString&)> m_openImage;
    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon* m_icon = nullptr;
    QString m_elapsed; // the recording's time, as the control bar shows it
    std::unique_ptr<AboutWindow> m_about;
    struct Thumbnail {
        QDateTime modified;
        QIcon icon;
    };
    QHash<QString, Thumbnail> m_thumbnails; // by file path, made in the background
};

} // namespace qm
