#pragma once

#include <QDateTime>
#include <QImage>
#include <QString>
#include <QWidget>
#include <functional>
#include <memory>

namespace qm {
class AnnotationEditorController;
class SettingsStore;
class ToastCenter;
namespace media::player {
class PlaybackEngine;
class TrimSession;
} // namespace media::player
namespace media::ui {
class TrimView;
}
} // namespace qm

namespace qm::library {

// The selected image in the annotation editor, in place. Saving writes a new file beside the
// original, never over it.
class LibraryEditorPane : public QWidget {
    Q_OBJECT
public:
    LibraryEditorPane(const QString& path, const QImage& image, SettingsStore& settings,
                      ToastCenter& toasts, QWidget* parent = nullptr);
    ~LibraryEditorPane() override;

    const QString& path() const { return m_path; }
    AnnotationEditorController& editor() const { return *m_editor; }

    // The editor wrote a file.
    std::function<void(const QString& path)> onSaved;

private:
    QString m_path;
    std::unique_ptr<AnnotationEditorController> m_editor;
    QWidget* m_view = nullptr;
};

// The selected movie in the trim view, with its own session and player. Playback stops when
// the pane goes.
class LibraryVideoPane : public QWidget {
    Q_OBJECT
public:
    LibraryVideoPane(const QString& path, bool sound, QWidget* parent = nullptr);
    ~LibraryVideoPane() override;

    const QString& path() const { return m_path; }
    media::player::TrimSession& session() const { return *m_session; }
    media::ui::TrimView* view() const { return m_view; }

    std::function<void(media::player::TrimSession& session, double start, double end)> onTrim;
    std::function<void(media::player::TrimSession& session, double start, double end)> onExportGif;
    // A trim or GIF export ended: the folder changed (the movie was shortened, or a GIF was
    // added).
    std::function<void()> onSaved;

private:
    void exportingChanged();

    QString m_path;
    QDateTime m_modified;
    bool m_wasExporting = false;
    std::unique_ptr<media::player::TrimSession> m_session;
    media::ui::TrimView* m_view = nullptr;
};

// A line of text in the middle of the pane ("Select a capture…", "Could not load image").
QWidget* makePaneMessage(const QString& text, QWidget* parent);

} // namespace qm::library
