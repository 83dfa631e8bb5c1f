#pragma once

#include "base/Hotkeys.h"
#include "base/Result.h"
#include "base/SettingsStore.h"

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QStringList>
#include <chrono>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace qm {

enum class AppTheme { System, Light, Dark };
QString rawValue(AppTheme theme);
QString displayName(AppTheme theme);
// Anything but the exact lower-case names reads as System.
AppTheme appThemeFromRaw(const QString& raw);

// The one settings store of the program. Every property write goes to the store at once and
// is announced by its change signal. Keys and value types are a stored format. Every value is
// checked as it is loaded: one that is not of its key's type or outside its allowed values is
// logged (key and value) and the key's default is used instead.
class Preferences : public QObject {
    Q_OBJECT
public:
    using ThemeApplier = std::function<void(AppTheme)>;

    static inline const QString outputKey = QStringLiteral("outputDirectoryPath");
    // One value per action, e.g. "hotkeys.region" = "Ctrl+Shift+4".
    static QString hotkeyKey(HotkeyAction action);

    // The fallback defaults, in the order they are registered.
    static std::vector<std::pair<QString, QVariant>> registeredDefaults();

    // Loads every setting from the store, writing the values straight back (harmless, and it
    // makes the file show the full set after the first run). The theme applier is told the
    // theme at load and on every change; without one the theme is only stored.
    explicit Preferences(SettingsStore& store, ThemeApplier applyTheme = {},
                         QObject* parent = nullptr);
    ~Preferences() override;

    // The latest thing that went wrong with the settings file, in one sentence for the user
    // (a damaged file set aside while loading), or empty. Later problems (a write that failed)
    // are announced by settingsProblemReported as they happen, each once.
    QString settingsProblem() const { return m_settingsProblem; }

    SettingsStore& store() const { return m_store; }

    AppTheme theme() const { return m_theme; }
    void setTheme(AppTheme theme);
    bool showQuickAccessOverlay() const { return m_showQuickAccessOverlay; }
    void setShowQuickAccessOverlay(bool on);
    // 0 keeps the cards until they are closed.
    qint64 overlayDismissSeconds() const { return m_overlayDismissSeconds; }
    std::chrono::milliseconds overlayDismissDelay() const {
        return std::chrono::seconds(m_overlayDismissSeconds);
    }
    void setOverlayDismissSeconds(qint64 seconds);
    bool copyToClipboardAfterCapture() const { return m_copyToClipboardAfterCapture; }
    void setCopyToClipboardAfterCapture(bool on);
    bool openEditorAfterCapture() const { return m_openEditorAfterCapture; }
    void setOpenEditorAfterCapture(bool on);
    bool playCaptureSound() const { return m_playCaptureSound; }
    void setPlayCaptureSound(bool on);
    // "Adjust area before capturing": the dragged area stays, with handles, until confirmed.
    bool adjustAreaBeforeCapturing() const { return m_adjustAreaBeforeCapturing; }
    void setAdjustAreaBeforeCapturing(bool on);
    // Saved and not-saved results as desktop notifications instead of Quillmark's own toasts.
    bool resultsAsNotifications() const { return m_resultsAsNotifications; }
    void setResultsAsNotifications(bool on);
    bool recordSystemAudio() const { return m_recordSystemAudio; }
    void setRecordSystemAudio(bool on);
    bool recordMicrophone() const { return m_recordMicrophone; }
    void setRecordMicrophone(bool on);
    bool trimAfterRecording() const { return m_trimAfterRecording; }
    void setTrimAfterRecording(bool on);
    bool recordWebcam() const { return m_recordWebcam; }
    void setRecordWebcam(bool on);
    bool highlightClicks() const { return m_highlightClicks; }
    void setHighlightClicks(bool on);
    int retentionDays() const { return m_retentionDays; }
    void setRetentionDays(int days);
    bool searchImageText() const { return m_searchImageText; }
    void setSearchImageText(bool on);
    double gifFPS() const { return m_gifFPS; }
    void setGifFPS(double fps);
    double gifMaxDimension() const { return m_gifMaxDimension; }
    void setGifMaxDimension(double pixels);
    QString aiModel() const { return m_aiModel; }
    void setAiModel(const QString& model);
    bool automaticUpdateChecks() const { return m_automaticUpdateChecks; }
    void setAutomaticUpdateChecks(bool on);
    std::optional<QDateTime> lastUpdateCheck() const { return m_lastUpdateCheck; }
    void setLastUpdateCheck(std::optional<QDateTime> when);
    // An absolute folder path.
    QString outputDirectory() const { return m_outputDirectory; }
    // Takes an absolute path or one starting with "~" (stored expanded); refuses anything else
    // with the reason, changing nothing. The folder is created if missing; failing to create
    // it is no error here (saving into it reports that).
    Status setOutputDirectory(const QString& path);
    // The absolute, clean form of a folder path the user typed, or why it is none.
    static Result<QString> absoluteFolder(const QString& path);

    // The user's own shortcuts; actions missing here use their defaults, and so do stored
    // values that are no usable shortcut (they are logged and left in the file to be fixed).
    const HotkeyTable& hotkeys() const { return m_hotkeys; }
    HotkeyCombo hotkey(HotkeyAction action) const;
    void setHotkey(const HotkeyCombo& combo, HotkeyAction action);
    // Tells everyone to register the shortcuts again (also after a cancelled recording).
    void postHotkeysChanged();

    // The user's Pictures folder plus "Quillmark".
    static QString defaultDirectory();
    // Creates the folder with its missing parents; errors are ignored.
    static void ensureExists(const QString& path);

Q_SIGNALS:
    void themeChanged(qm::AppTheme theme);
    void showQuickAccessOverlayChanged(bool on);
    void overlayDismissSecondsChanged(qint64 seconds);
    void copyToClipboardAfterCaptureChanged(bool on);
    void openEditorAfterCaptureChanged(bool on);
    void playCaptureSoundChanged(bool on);
    void adjustAreaBeforeCapturingChanged(bool on);
    void resultsAsNotificationsChanged(bool on);
    void recordSystemAudioChanged(bool on);
    void recordMicrophoneChanged(bool on);
    void trimAfterRecordingChanged(bool on);
    void recordWebcamChanged(bool on);
    void highlightClicksChanged(bool on);
    void retentionDaysChanged(int days);
    void searchImageTextChanged(bool on);
    void gifFPSChanged(double fps);
    void gifMaxDimensionChanged(double pixels);
    void aiModelChanged(const QString& model);
    void automaticUpdateChecksChanged(bool on);
    void lastUpdateCheckChanged();
    void outputDirectoryChanged(const QString& path);
    void hotkeysChanged();
    // Posted after every change of the shortcut table and when shortcut recording ends.
    void quillmarkHotkeysChanged();
    // Something went wrong with the settings file that the user should be told (once).
    void settingsProblemReported(const QString& problem);

private:
    std::optional<HotkeyCombo> storedHotkey(HotkeyAction action) const;
    template <typename T, typename Signal>
    void assign(T& field, T value, const QString& key, Signal signal);

    SettingsStore& m_store;
    ThemeApplier m_applyTheme;

    AppTheme m_theme = AppTheme::System;
    bool m_showQuickAccessOverlay = true;
    qint64 m_overlayDismissSeconds = 0;
    bool m_copyToClipboardAfterCapture = true;
    bool m_openEditorAfterCapture = false;
    bool m_playCaptureSound = true;
    bool m_adjustAreaBeforeCapturing = false;
    bool m_resultsAsNotifications = false;
    bool m_recordSystemAudio = true;
    bool m_recordMicrophone = false;
    bool m_trimAfterRecording = true;
    bool m_recordWebcam = false;
    bool m_highlightClicks = false;
    int m_retentionDays = 0;
    bool m_searchImageText = true;
    double m_gifFPS = 12;
    double m_gifMaxDimension = 960;
    QString m_aiModel = QStringLiteral("claude-sonnet-5");
    bool m_automaticUpdateChecks = true;
    std::optional<QDateTime> m_lastUpdateCheck;
    QString m_outputDirectory;
    HotkeyTable m_hotkeys;
    QString m_settingsProblem;
};

} // namespace qm
