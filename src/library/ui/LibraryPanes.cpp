#include "library/ui/LibraryPanes.h"

#include "editor/ui/AnnotationEditorController.h"
#include "editor/ui/AnnotationEditorView.h"
#include "media/player/PlaybackEngine.h"
#include "media/player/TrimSession.h"
#include "media/ui/TrimView.h"
#include "ui/ToastCenter.h"

#include <QFileInfo>
#include <QLabel>
#include <QVBoxLayout>

namespace qm::library {

QWidget* makePaneMessage(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    label->setObjectName(QStringLiteral("paneMessage"));
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, palette.color(QPalette::PlaceholderText));
    label->setPalette(palette);
    return label;
}

LibraryEditorPane::LibraryEditorPane(const QString& path, const QImage& image,
                                     SettingsStore& settings, ToastCenter& toasts, QWidget* parent)
    : QWidget(parent)
    , m_path(path) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_editor = std::make_unique<AnnotationEditorController>(
        image, settings, AnnotationEditorController::FinishCallback{},
        [&toasts](const QString& text, const QString& icon, ToastCenter::Style style) {
            toasts.present(text, icon, style);
        });
    const QFileInfo info(path);
    m_editor->saveBeside = SaveBeside{info.absolutePath(), info.completeBaseName()};
    m_editor->onSaved = [this](const QString& written) {
        if (onSaved)
            onSaved(written);
    };
    m_view = m_editor->embed(*this);
}

LibraryEditorPane::~LibraryEditorPane() {
    // Choosing another capture or closing the library never throws marks away: they are
    // written beside the original (the write finishes on its worker after the pane is gone,
    // and the folder watch lists the new file).
    if (m_editor->hasUnsavedChanges())
        m_editor->save();
    // The view draws the controller's document: it goes first.
    delete m_view;
    m_editor.reset();
}

LibraryVideoPane::LibraryVideoPane(const QString& path, bool sound, QWidget* parent)
    : QWidget(parent)
    , m_path(path)
    , m_modified(QFileInfo(path).lastModified()) {
    auto engine = std::make_unique<media::player::PlaybackEngine>(path, sound);
    media::player::PlaybackEngine* player = engine.get();
    m_session = std::make_unique<media::player::TrimSession>(path, std::move(engine));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_view = new media::ui::TrimView(*m_session, player, false, this);
    layout->addWidget(m_view);
    m_view->onTrim = [this](double start, double end) {
        if (onTrim)
            onTrim(*m_session, start, end);
    };
    m_view->onExportGif = [this](double start, double end) {
        if (onExportGif)
            onExportGif(*m_session, start, end);
    };
    connect(m_session.get(), &media::player::TrimSession::exportingChanged, this,
            &LibraryVideoPane::exportingChanged);
    m_session->load();
}

LibraryVideoPane::~LibraryVideoPane() {
    m_session->teardown();
    delete m_view; // it watches the session
}

void LibraryVideoPane::exportingChanged() {
    const bool exporting = m_session->isExporting();
    const bool ended = m_wasExporting && !exporting;
    m_wasExporting = exporting;
    if (!ended)
        return;
    // A trim replaced the movie: show the shorter one.
    if (const QDateTime now = QFileInfo(m_path).lastModified(); now != m_modified) {
        m_modified = now;
        m_session->reload();
    }
    if (onSaved)
        onSaved();
}

} // namespace qm::library
