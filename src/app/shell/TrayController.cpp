#include "app/shell/TrayController.h"

#include "app/RecentCaptures.h"
#include "app/shell/AboutWindow.h"
#include "app/workflow/AppModel.h"
#include "app/workflow/RecordingFlows.h"
#include "base/AppId.h"
#include "base/Hotkeys.h"
#include "base/Log.h"
#include "base/Preferences.h"
#include "platform/desktop/Reveal.h"
#include "ui/Icons.h"

#include <QApplication>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QImageReader>
#include <QMenu>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <QtConcurrent>

namespace qm {

namespace {

// The program's own icon as the desktop installed it, else the one built in.
QIcon appIcon() {
    return QIcon::fromTheme(applicationId,
                            QIcon(QStringLiteral(":/quillmark/icons/quillmark.svg")));
}

// A 48-pixel thumbnail, decoded at reduced size where the format allows.
QImage thumbnail(const QString& path) {
    QImageReader reader(path);
    const QSize size = reader.size();
    if (size.isValid())
        reader.setScaledSize(size.scaled(48, 48, Qt::KeepAspectRatio));
    return reader.read();
}
} // namespace

TrayController::TrayController(AppModel& model, Preferences& preferences,
                               std::function<void(const QString&)> openImage, QObject* parent)
    : QObject(parent)
    , m_model(model)
    , m_preferences(preferences)
    , m_openImage(std::move(openImage))
    , m_menu(std::make_unique<QMenu>()) {
    connect(m_menu.get(), &QMenu::aboutToShow, this, &TrayController::rebuildMenu);
    connect(&m_model, &AppModel::libraryRevisionChanged, this, &TrayController::refreshThumbnails);
    connect(&m_preferences, &Preferences::outputDirectoryChanged, this,
            &TrayController::refreshThumbnails);
    rebuildMenu();
    refreshThumbnails();

    m_icon = new QSystemTrayIcon(appIcon(), this);
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

    // While recording, the icon says so and its tooltip shows the time; with no control bar
    // on screen (a whole single screen is recorded) the tray is where the user stops it.
    RecordingFlows& recording = m_model.recording();
    connect(&recording, &RecordingFlows::phaseChanged, this,
            [this](RecordingFlows::Phase) { showRecordingState(); });
    connect(&recording, &RecordingFlows::pausedChanged, this,
            [this](bool) { showRecordingState(); });
    connect(&recording, &RecordingFlows::elapsedChanged, this, [this](const QString& elapsed) {
        m_elapsed = elapsed;
        showRecordingState();
    });
}

void TrayController::showRecordingState() {
    const RecordingFlows& recording = m_model.recording();
    if (!recording.isRecording()) {
        m_elapsed.clear();
        m_icon->setIcon(appIcon());
        m_icon->setToolTip(QStringLiteral("Quillmark"));
        return;
    }
    const bool paused = recording.isPaused();
    // The recording red of the control bar's dot, so the tray reads "recording" at a glance.
    m_icon->setIcon(paused ? themedIcon(QStringLiteral("media-playback-pause"))
                           : tintedIcon(QStringLiteral("media-record"), QColor(250, 69, 61)));
    const QString elapsed = m_elapsed.isEmpty() ? QStringLiteral("00:00") : m_elapsed;
    m_icon->setToolTip(paused ? QStringLiteral("Quillmark — recording paused at %1").arg(elapsed)
                              : QStringLiteral("Quillmark — recording %1").arg(elapsed));
}

TrayController::~TrayController() = default;

bool TrayController::isVisible() const {
    return m_icon && m_icon->isVisible();
}

void TrayController::rebuildMenu() {
    QMenu* menu = m_menu.get();
    menu->clear();
    auto addCapture = [&](const QString& title, const QString& icon, CaptureKind kind,
                          HotkeyAction action) {
        QAction* item =
            menu->addAction(themedIcon(icon), title, this, [this, kind] { m_model.perform(kind); });
        // A hint of the global shortcut; the global grab is what makes it work elsewhere.
        item->setShortcut(m_preferences.hotkey(action).sequence());
        item->setShortcutContext(Qt::WidgetShortcut);
        item->setShortcutVisibleInContextMenu(true);
    };
    addCapture(QStringLiteral("Capture Area"), QStringLiteral("select-rectangular"),
               CaptureKind::Region, HotkeyAction::Region);
    addCapture(QStringLiteral("Capture Window"), QStringLiteral("window"), CaptureKind::Window,
               HotkeyAction::Window);
    addCapture(QStringLiteral("Capture Fullscreen"), QStringLiteral("view-fullscreen"),
               CaptureKind::Fullscreen, HotkeyAction::Fullscreen);
    menu->addSeparator();
    addRecordingItems(menu);
    menu->addSeparator();

    QMenu* timer =
        menu->addMenu(themedIcon(QStringLiteral("chronometer")), QStringLiteral("Self-Timer"));
    const std::tuple<const char*, CaptureKind, int> delayed[] = {
        {"Capture Area in 3 Seconds", CaptureKind::Region, 3},
        {"Capture Area in 10 Seconds", CaptureKind::Region, 10},
        {"Capture Fullscreen in 3 Seconds", CaptureKind::Fullscreen, 3},
        {"Capture Fullscreen in 10 Seconds", CaptureKind::Fullscreen, 10}};
    for (const auto& [title, kind, seconds] : delayed)
        timer->addAction(QString::fromUtf8(title), this, [this, kind = kind, seconds = seconds] {
            m_model.performDelayed(kind, seconds);
        });

    menu->addAction(themedIcon(QStringLiteral("view-grid")), QStringLiteral("All Captures…"), this,
                    [this] { m_model.showLibrary(); });

    QMenu* options =
        menu->addMenu(themedIcon(QStringLiteral("configure")), QStringLiteral("Options"));
    QAction* adjust = options->addAction(QStringLiteral("Adjust Area Before Capturing"));
    adjust->setCheckable(true);
    adjust->setChecked(m_preferences.adjustAreaBeforeCapturing());
    connect(adjust, &QAction::toggled, &m_preferences, &Preferences::setAdjustAreaBeforeCapturing);
    QAction* notify = options->addAction(QStringLiteral("Show Results as Notifications"));
    notify->setCheckable(true);
    notify->setChecked(m_preferences.resultsAsNotifications());
    connect(notify, &QAction::toggled, &m_preferences, &Preferences::setResultsAsNotifications);
    // What a recording takes in, until the settings window arrives.
    options->addSection(QStringLiteral("Recording"));
    const std::tuple<const char*, bool, void (Preferences::*)(bool)> recordingOptions[] = {
        {"Record system audio", m_preferences.recordSystemAudio(),
         &Preferences::setRecordSystemAudio},
        {"Record microphone", m_preferences.recordMicrophone(), &Preferences::setRecordMicrophone},
        {"Show webcam bubble", m_preferences.recordWebcam(), &Preferences::setRecordWebcam},
        {"Highlight mouse clicks", m_preferences.highlightClicks(),
         &Preferences::setHighlightClicks}};
    for (const auto& [title, on, set] : recordingOptions) {
        QAction* item = options->addAction(QString::fromUtf8(title));
        item->setCheckable(true);
        item->setChecked(on);
        connect(item, &QAction::toggled, &m_preferences, set);
    }

    const QStringList recent = recentCaptures(m_preferences.outputDirectory());
    if (!recent.isEmpty()) {
        QMenu* sub = menu->addMenu(themedIcon(QStringLiteral("document-open-recent")),
                                   QStringLiteral("Recent Captures"));
        for (const QString& path : recent)
            sub->addAction(m_thumbnails.value(path).icon, QFileInfo(path).completeBaseName(), this,
                           [this, path] { m_openImage(path); });
    }
    menu->addSeparator();

    if (const auto last = m_model.lastSavedURL()) {
        menu->addAction(themedIcon(QStringLiteral("folder")), QStringLiteral("Show Last in Folder"),
                        this, [path = *last] { revealInFolder(path); });
        menu->addSeparator();
    }
    if (!m_model.lastStatus().isEmpty()) {
        QAction* status = menu->addAction(m_model.lastStatus());
        status->setEnabled(false);
        menu->addSeparator();
    }
    menu->addAction(themedIcon(QStringLiteral("help-about")), QStringLiteral("About Quillmark"),
                    this, [this] { showAbout(); });
    QAction* quit =
        menu->addAction(themedIcon(QStringLiteral("application-exit")),
                        QStringLiteral("Quit Quillmark"), qApp, &QCoreApplication::quit);
    quit->setShortcut(QKeySequence(QStringLiteral("Ctrl+Q")));
    quit->setShortcutVisibleInContextMenu(true);
}

void TrayController::addRecordingItems(QMenu* menu) {
    RecordingFlows& recording = m_model.recording();
    const QKeySequence recordKey = m_preferences.hotkey(HotkeyAction::Record).sequence();
    auto withShortcut = [&recordKey](QAction* item) {
        item->setShortcut(recordKey);
        item->setShortcutContext(Qt::WidgetShortcut);
        item->setShortcutVisibleInContextMenu(true);
    };
    if (recording.isRecording()) {
        // Stop takes the place of the two record items; with no control bar on screen (a
        // whole single screen is recorded) pausing is offered here too.
        if (!recording.controlBarShown()) {
            const bool paused = recording.isPaused();
            menu->addAction(themedIcon(paused ? QStringLiteral("media-playback-start")
                                              : QStringLiteral("media-playback-pause")),
                            paused ? QStringLiteral("Resume Recording")
                                   : QStringLiteral("Pause Recording"),
                            this, [this, paused] { m_model.recording().setPaused(!paused); });
        }
        const QString elapsed =
            m_elapsed.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(m_elapsed);
        withShortcut(menu->addAction(themedIcon(QStringLiteral("media-playback-stop")),
                                     QStringLiteral("Stop Recording") + elapsed, this,
                                     [this] { m_model.stopRecording(); }));
        return;
    }
    const bool idle = recording.phase() == RecordingFlows::Phase::Idle && !m_model.isCapturing();
    QAction* area =
        menu->addAction(themedIcon(QStringLiteral("media-record")), QStringLiteral("Record Area…"),
                        this, [this] { m_model.recordArea(); });
    withShortcut(area);
    area->setEnabled(idle);
    QAction* screen =
        menu->addAction(themedIcon(QStringLiteral("video-display")),
                        QStringLiteral("Record Screen"), this, [this] { m_model.recordScreen(); });
    screen->setEnabled(idle);
}

void TrayController::refreshThumbnails() {
    // Only the files now listed keep a thumbnail, and only new or changed ones are decoded:
    // a screen-sized PNG takes a good part of a second to read.
    const QStringList paths = recentCaptures(m_preferences.outputDirectory());
    QHash<QString, Thumbnail> kept;
    QList<std::pair<QString, QDateTime>> toRead;
    for (const QString& path : paths) {
        const QDateTime modified = QFileInfo(path).lastModified();
        const auto known = m_thumbnails.constFind(path);
        if (known != m_thumbnails.cend() && known->modified == modified)
            kept.insert(path, *known);
        else
            toRead.append({path, modified});
    }
    m_thumbnails = std::move(kept);
    if (toRead.isEmpty())
        return;
    using Read = QList<std::tuple<QString, QDateTime, QImage>>;
    auto* watcher = new QFutureWatcher<Read>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        for (const auto& [path, modified, image] : watcher->result())
            if (!image.isNull())
                m_thumbnails.insert(path, {modified, QIcon(QPixmap::fromImage(image))});
        watcher->deleteLater();
    });
    watcher->setFuture(QtConcurrent::run([toRead] {
        Read result;
        for (const auto& [path, modified] : toRead)
            result.append({path, modified, thumbnail(path)});
        return result;
    }));
}

void TrayController::showAbout() {
    if (!m_about)
        m_about = std::make_unique<AboutWindow>();
    m_about->show();
    m_about->raise();
    m_about->activateWindow();
}

} // namespace qm
