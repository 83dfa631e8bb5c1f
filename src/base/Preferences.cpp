#include "base/Preferences.h"

#include "base/Log.h"

#include <QDir>
#include <QStandardPaths>
#include <QTimeZone>

namespace qm {

namespace {
const QString kTheme = QStringLiteral("appTheme");
const QString kOverlay = QStringLiteral("afterCapture.overlay");
const QString kOverlayDismiss = QStringLiteral("afterCapture.overlayDismiss");
const QString kClipboard = QStringLiteral("afterCapture.clipboard");
const QString kEditor = QStringLiteral("afterCapture.editor");
const QString kSound = QStringLiteral("afterCapture.sound");
const QString kAdjustArea = QStringLiteral("capture.adjustArea");
const QString kSystemAudio = QStringLiteral("recording.systemAudio");
const QString kMicrophone = QStringLiteral("recording.microphone");
const QString kTrimWindow = QStringLiteral("recording.trimWindow");
const QString kWebcam = QStringLiteral("recording.webcam");
const QString kClickHighlights = QStringLiteral("recording.clickHighlights");
const QString kRetentionDays = QStringLiteral("library.retentionDays");
const QString kOcrSearch = QStringLiteral("library.ocrSearch");
const QString kGifFps = QStringLiteral("gif.fps");
const QString kGifMaxDimension = QStringLiteral("gif.maxDimension");
const QString kAiModel = QStringLiteral("ai.model");
const QString kUpdatesAutomatic = QStringLiteral("updates.automatic");
const QString kUpdatesLastCheck = QStringLiteral("updates.lastCheck");
const QString kDefaultAiModel = QStringLiteral("claude-sonnet-5");
} // namespace

QString rawValue(AppTheme theme) {
    switch (theme) {
    case AppTheme::System:
        return QStringLiteral("system");
    case AppTheme::Light:
        return QStringLiteral("light");
    case AppTheme::Dark:
        return QStringLiteral("dark");
    }
    return {};
}

QString displayName(AppTheme theme) {
    switch (theme) {
    case AppTheme::System:
        return QStringLiteral("System");
    case AppTheme::Light:
        return QStringLiteral("Light");
    case AppTheme::Dark:
        return QStringLiteral("Dark");
    }
    return {};
}

AppTheme appThemeFromRaw(const QString& raw) {
    if (raw == QLatin1String("light"))
        return AppTheme::Light;
    if (raw == QLatin1String("dark"))
        return AppTheme::Dark;
    return AppTheme::System;
}

std::vector<std::pair<QString, QVariant>> Preferences::registeredDefaults() {
    return {{kOverlay, true},     {kClipboard, true},        {kSound, true},
            {kSystemAudio, true}, {kTrimWindow, true},       {kOcrSearch, true},
            {kGifFps, 12.0},      {kGifMaxDimension, 960.0}, {kUpdatesAutomatic, true}};
}

Preferences::Preferences(SettingsStore& store, ThemeApplier applyTheme, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_applyTheme(std::move(applyTheme)) {
    QVariantMap defaults;
    for (const auto& [key, value] : registeredDefaults())
        defaults.insert(key, value);
    m_store.registerDefaults(defaults);

    const auto storedFolder = m_store.stringValue(outputKey);
    m_outputDirectory = storedFolder && !storedFolder->isEmpty()
                            ? QDir::cleanPath(QDir(*storedFolder).absolutePath())
                            : defaultDirectory();
    ensureExists(m_outputDirectory);

    for (HotkeyAction action : allHotkeyActions)
        if (auto combo = storedHotkey(action))
            m_hotkeys[action] = *combo;

    setTheme(appThemeFromRaw(m_store.stringValue(kTheme).value_or(QString())));

    setShowQuickAccessOverlay(m_store.boolValue(kOverlay));
    setOverlayDismissSeconds(int(m_store.integerValue(kOverlayDismiss)));
    setCopyToClipboardAfterCapture(m_store.boolValue(kClipboard));
    setOpenEditorAfterCapture(m_store.boolValue(kEditor));
    setPlayCaptureSound(m_store.boolValue(kSound));
    setAdjustAreaBeforeCapturing(m_store.boolValue(kAdjustArea));
    setRecordSystemAudio(m_store.boolValue(kSystemAudio));
    setRecordMicrophone(m_store.boolValue(kMicrophone));
    setTrimAfterRecording(m_store.boolValue(kTrimWindow));
    setRecordWebcam(m_store.boolValue(kWebcam));
    setHighlightClicks(m_store.boolValue(kClickHighlights));
    setRetentionDays(int(m_store.integerValue(kRetentionDays)));
    setSearchImageText(m_store.boolValue(kOcrSearch));
    setGifFPS(m_store.doubleValue(kGifFps));
    setGifMaxDimension(m_store.doubleValue(kGifMaxDimension));
    setAiModel(m_store.stringValue(kAiModel).value_or(kDefaultAiModel));

    setAutomaticUpdateChecks(m_store.boolValue(kUpdatesAutomatic));
    const double lastCheck = m_store.doubleValue(kUpdatesLastCheck);
    m_lastUpdateCheck =
        lastCheck > 0
            ? std::optional(QDateTime::fromMSecsSinceEpoch(qint64(lastCheck * 1000), Qt::UTC))
            : std::nullopt;
}

template <typename T, typename Signal>
void Preferences::assign(T& field, T value, const QString& key, Signal signal) {
    // The store gets every write, even an unchanged one, so a loaded value is written back.
    m_store.setValue(key, QVariant::fromValue(value));
    if (field == value)
        return;
    field = std::move(value);
    Q_EMIT(this->*signal)(field);
}

void Preferences::setTheme(AppTheme theme) {
    m_store.setValue(kTheme, rawValue(theme));
    const bool changed = m_theme != theme;
    m_theme = theme;
    if (m_applyTheme)
        m_applyTheme(theme);
    if (changed)
        Q_EMIT themeChanged(theme);
}

void Preferences::setShowQuickAccessOverlay(bool on) {
    assign(m_showQuickAccessOverlay, on, kOverlay, &Preferences::showQuickAccessOverlayChanged);
}
void Preferences::setOverlayDismissSeconds(int seconds) {
    assign(m_overlayDismissSeconds, seconds, kOverlayDismiss,
           &Preferences::overlayDismissSecondsChanged);
}
void Preferences::setCopyToClipboardAfterCapture(bool on) {
    assign(m_copyToClipboardAfterCapture, on, kClipboard,
           &Preferences::copyToClipboardAfterCaptureChanged);
}
void Preferences::setOpenEditorAfterCapture(bool on) {
    assign(m_openEditorAfterCapture, on, kEditor, &Preferences::openEditorAfterCaptureChanged);
}
void Preferences::setPlayCaptureSound(bool on) {
    assign(m_playCaptureSound, on, kSound, &Preferences::playCaptureSoundChanged);
}
void Preferences::setRecordSystemAudio(bool on) {
    assign(m_recordSystemAudio, on, kSystemAudio, &Preferences::recordSystemAudioChanged);
}
void Preferences::setRecordMicrophone(bool on) {
    assign(m_recordMicrophone, on, kMicrophone, &Preferences::recordMicrophoneChanged);
}
void Preferences::setTrimAfterRecording(bool on) {
    assign(m_trimAfterRecording, on, kTrimWindow, &Preferences::trimAfterRecordingChanged);
}
void Preferences::setRecordWebcam(bool on) {
    assign(m_recordWebcam, on, kWebcam, &Preferences::recordWebcamChanged);
}
void Preferences::setAdjustAreaBeforeCapturing(bool on) {
    assign(m_adjustAreaBeforeCapturing, on, kAdjustArea,
           &Preferences::adjustAreaBeforeCapturingChanged);
}

void Preferences::setHighlightClicks(bool on) {
    assign(m_highlightClicks, on, kClickHighlights, &Preferences::highlightClicksChanged);
}
void Preferences::setRetentionDays(int days) {
    assign(m_retentionDays, days, kRetentionDays, &Preferences::retentionDaysChanged);
}
void Preferences::setSearchImageText(bool on) {
    assign(m_searchImageText, on, kOcrSearch, &Preferences::searchImageTextChanged);
}
void Preferences::setGifFPS(double fps) {
    assign(m_gifFPS, fps, kGifFps, &Preferences::gifFPSChanged);
}
void Preferences::setGifMaxDimension(double pixels) {
    assign(m_gifMaxDimension, pixels, kGifMaxDimension, &Preferences::gifMaxDimensionChanged);
}
void Preferences::setAiModel(const QString& model) {
    assign(m_aiModel, model, kAiModel, &Preferences::aiModelChanged);
}
void Preferences::setAutomaticUpdateChecks(bool on) {
    assign(m_automaticUpdateChecks, on, kUpdatesAutomatic,
           &Preferences::automaticUpdateChecksChanged);
}

void Preferences::setLastUpdateCheck(std::optional<QDateTime> when) {
    if (when)
        m_store.setValue(kUpdatesLastCheck, double(when->toMSecsSinceEpoch()) / 1000.0);
    else
        m_store.remove(kUpdatesLastCheck);
    m_lastUpdateCheck = std::move(when);
    Q_EMIT lastUpdateCheckChanged();
}

void Preferences::setOutputDirectory(const QString& path) {
    const QString folder = QDir::cleanPath(QDir(path).absolutePath());
    // The plain path, not a URL, so the file stays readable by hand.
    m_store.setValue(outputKey, folder);
    ensureExists(folder);
    if (m_outputDirectory == folder)
        return;
    m_outputDirectory = folder;
    Q_EMIT outputDirectoryChanged(folder);
}

QString Preferences::hotkeyKey(HotkeyAction action) {
    return QStringLiteral("hotkeys.") + rawValue(action);
}

std::optional<HotkeyCombo> Preferences::storedHotkey(HotkeyAction action) const {
    const auto stored = m_store.value(hotkeyKey(action));
    if (!stored)
        return std::nullopt;
    // An unquoted comma in the file reads as a list; put it back to judge the whole value.
    const QString text = stored->typeId() == QMetaType::QStringList
                             ? stored->toStringList().join(QLatin1Char(','))
                             : stored->toString();
    auto combo = HotkeyCombo::fromText(text);
    if (!combo)
        qCWarning(lcHotkey).noquote()
            << QStringLiteral("Quillmark: the %1 shortcut \"%2\" is not one key with Ctrl, Alt or "
                              "Super; using %3")
                   .arg(rawValue(action), text, defaultHotkey(action).portableText());
    return combo;
}

HotkeyCombo Preferences::hotkey(HotkeyAction action) const {
    const auto it = m_hotkeys.find(action);
    return it != m_hotkeys.end() ? it->second : defaultHotkey(action);
}

void Preferences::setHotkey(const HotkeyCombo& combo, HotkeyAction action) {
    m_hotkeys[action] = combo;
    m_store.setValue(hotkeyKey(action), combo.portableText());
    Q_EMIT hotkeysChanged();
    postHotkeysChanged();
}

void Preferences::postHotkeysChanged() {
    Q_EMIT quillmarkHotkeysChanged();
}

QString Preferences::defaultDirectory() {
    QString pictures = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    if (pictures.isEmpty() || pictures == QDir::homePath())
        pictures = QDir::homePath() + QStringLiteral("/Pictures");
    return QDir::cleanPath(pictures + QStringLiteral("/Quillmark"));
}

void Preferences::ensureExists(const QString& path) {
    if (!path.isEmpty())
        QDir().mkpath(path);
}

} // namespace qm
