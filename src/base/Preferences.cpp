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
const QString kResultNotifications = QStringLiteral("resultsAsNotifications");
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

// A card may wait up to a year; far past what 32-bit milliseconds (24.8 days) could hold.
constexpr qint64 kLongestDismissSeconds = 365LL * 24 * 60 * 60;
constexpr qint64 kLongestRetentionDays = 100LL * 365;
// A GIF frame lasts a whole number of hundredths of a second: 50 frames a second at most.
constexpr double kFastestGifFps = 50;

QStringList aiModels() {
    return {kDefaultAiModel, QStringLiteral("claude-opus-4-8"),
            QStringLiteral("claude-haiku-4-5-20251001")};
}

QString shown(const QVariant& value) {
    return value.typeId() == QMetaType::QStringList
               ? value.toStringList().join(QStringLiteral(", "))
               : value.toString();
}

// Reads the stored values, checking each: one that does not fit is logged with its key and
// value, and the default given is used.
class CheckedReader {
public:
    explicit CheckedReader(const SettingsStore& store)
        : m_store(store) {}

    bool flag(const QString& key, bool fallback) const {
        const auto stored = m_store.value(key);
        if (!stored)
            return fallback;
        if (const auto on = SettingsStore::toBool(*stored))
            return *on;
        return reject(key, *stored, QStringLiteral("not true or false"),
                      fallback ? QStringLiteral("true") : QStringLiteral("false"), fallback);
    }

    qint64 integer(const QString& key, qint64 fallback, qint64 min, qint64 max) const {
        const auto stored = m_store.value(key);
        if (!stored)
            return fallback;
        const auto i = SettingsStore::toInteger(*stored);
        if (!i)
            return reject(key, *stored, QStringLiteral("not a whole number"),
                          QString::number(fallback), fallback);
        if (*i < min || *i > max)
            return reject(key, *stored, QStringLiteral("not between %1 and %2").arg(min).arg(max),
                          QString::number(fallback), fallback);
        return *i;
    }

    double number(const QString& key, double fallback, double min, double max) const {
        const auto stored = m_store.value(key);
        if (!stored)
            return fallback;
        const auto d = SettingsStore::toDouble(*stored);
        if (!d)
            return reject(key, *stored, QStringLiteral("not a number"), QString::number(fallback),
                          fallback);
        if (*d < min || *d > max)
            return reject(key, *stored, QStringLiteral("not between %1 and %2").arg(min).arg(max),
                          QString::number(fallback), fallback);
        return *d;
    }

    QString choice(const QString& key, const QString& fallback, const QStringList& choices) const {
        const auto stored = m_store.value(key);
        if (!stored)
            return fallback;
        if (stored->typeId() == QMetaType::QString && choices.contains(stored->toString()))
            return stored->toString();
        return reject(key, *stored,
                      QStringLiteral("not one of %1").arg(choices.join(QStringLiteral(", "))),
                      fallback, fallback);
    }

    // An absolute folder; "~" is the home folder.
    QString folder(const QString& key, const QString& fallback) const {
        const auto stored = m_store.value(key);
        if (!stored || (stored->typeId() == QMetaType::QString && stored->toString().isEmpty()))
            return fallback;
        if (stored->typeId() != QMetaType::QString)
            return reject(key, *stored, QStringLiteral("not a folder path"), fallback, fallback);
        auto folder = Preferences::absoluteFolder(stored->toString());
        if (!folder)
            return reject(key, *stored, QStringLiteral("not a full folder path"), fallback,
                          fallback);
        return *folder;
    }

private:
    template <typename T>
    static T reject(const QString& key, const QVariant& stored, const QString& why,
                    const QString& used, T fallback) {
        qCWarning(lcApp).noquote()
            << QStringLiteral("Quillmark: the setting %1 = \"%2\" is %3; using %4")
                   .arg(key, shown(stored), why, used);
        return fallback;
    }

    const SettingsStore& m_store;
};
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
    // A problem found while the file was read lands here at once; later ones are signalled.
    m_store.setProblemHandler([this](const QString& problem) {
        m_settingsProblem = problem;
        Q_EMIT settingsProblemReported(problem);
    });
    QVariantMap defaults;
    for (const auto& [key, value] : registeredDefaults())
        defaults.insert(key, value);
    m_store.registerDefaults(defaults);
    // Each member holds its built-in value until it is read: that is the key's default.
    const CheckedReader read(m_store);

    m_outputDirectory = read.folder(outputKey, defaultDirectory());
    ensureExists(m_outputDirectory);

    for (HotkeyAction action : allHotkeyActions)
        if (auto combo = storedHotkey(action))
            m_hotkeys[action] = *combo;

    const QStringList themes{rawValue(AppTheme::System), rawValue(AppTheme::Light),
                             rawValue(AppTheme::Dark)};
    setTheme(appThemeFromRaw(read.choice(kTheme, rawValue(m_theme), themes)));

    setShowQuickAccessOverlay(read.flag(kOverlay, m_showQuickAccessOverlay));
    setOverlayDismissSeconds(
        read.integer(kOverlayDismiss, m_overlayDismissSeconds, 0, kLongestDismissSeconds));
    setCopyToClipboardAfterCapture(read.flag(kClipboard, m_copyToClipboardAfterCapture));
    setOpenEditorAfterCapture(read.flag(kEditor, m_openEditorAfterCapture));
    setPlayCaptureSound(read.flag(kSound, m_playCaptureSound));
    setAdjustAreaBeforeCapturing(read.flag(kAdjustArea, m_adjustAreaBeforeCapturing));
    setResultsAsNotifications(read.flag(kResultNotifications, m_resultsAsNotifications));
    setRecordSystemAudio(read.flag(kSystemAudio, m_recordSystemAudio));
    setRecordMicrophone(read.flag(kMicrophone, m_recordMicrophone));
    setTrimAfterRecording(read.flag(kTrimWindow, m_trimAfterRecording));
    setRecordWebcam(read.flag(kWebcam, m_recordWebcam));
    setHighlightClicks(read.flag(kClickHighlights, m_highlightClicks));
    setRetentionDays(int(read.integer(kRetentionDays, m_retentionDays, 0, kLongestRetentionDays)));
    setSearchImageText(read.flag(kOcrSearch, m_searchImageText));
    setGifFPS(read.number(kGifFps, m_gifFPS, 1, kFastestGifFps));
    setGifMaxDimension(read.number(kGifMaxDimension, m_gifMaxDimension, 16, 8192));
    setAiModel(read.choice(kAiModel, m_aiModel, aiModels()));

    setAutomaticUpdateChecks(read.flag(kUpdatesAutomatic, m_automaticUpdateChecks));
    // Seconds since 1970; no more than the year 9999, so the milliseconds stay in 64 bits.
    const double lastCheck = read.number(kUpdatesLastCheck, 0, -1e12, 253'402'300'799.0);
    m_lastUpdateCheck =
        lastCheck > 0
            ? std::optional(QDateTime::fromMSecsSinceEpoch(qint64(lastCheck * 1000), Qt::UTC))
            : std::nullopt;
}

Preferences::~Preferences() {
    m_store.setProblemHandler({});
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
void Preferences::setOverlayDismissSeconds(qint64 seconds) {
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
void Preferences::setResultsAsNotifications(bool on) {
    assign(m_resultsAsNotifications, on, kResultNotifications,
           &Preferences::resultsAsNotificationsChanged);
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

Result<QString> Preferences::absoluteFolder(const QString& path) {
    if (path.trimmed().isEmpty())
        return failure(QStringLiteral("no folder was given"));
    QString folder = path;
    if (folder == QLatin1String("~") || folder.startsWith(QLatin1String("~/")))
        folder.replace(0, 1, QDir::homePath());
    // A relative path would depend on whatever folder the program happened to start in.
    if (!QDir::isAbsolutePath(folder))
        return failure(
            QStringLiteral("“%1” is not a full folder path; it must start with / or ~").arg(path));
    return QDir::cleanPath(folder);
}

Status Preferences::setOutputDirectory(const QString& path) {
    auto absolute = absoluteFolder(path);
    if (!absolute)
        return absolute.error();
    const QString folder = *absolute;
    // The plain path, not a URL, so the file stays readable by hand.
    m_store.setValue(outputKey, folder);
    ensureExists(folder);
    if (m_outputDirectory != folder) {
        m_outputDirectory = folder;
        Q_EMIT outputDirectoryChanged(folder);
    }
    return {};
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
