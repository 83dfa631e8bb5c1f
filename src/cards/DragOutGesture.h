#pragma once

#include <QImage>
#include <QObject>
#include <QPointF>
#include <QString>
#include <functional>
#include <optional>

namespace qm {

// Decides, for one thumbnail, whether a press is a click or a drag of the capture out as a
// file. The file is prepared when the button goes down — the saved capture when there is one,
// else a temporary PNG written in the background — and the drag starts as soon as both the
// file and the gesture are ready, so a quick flick never waits for a second movement.
// Holds no widgets: the view feeds it pointer positions and runs the drag it asks for.
class DragOutGesture final : public QObject {
    Q_OBJECT
public:
    // The saved capture, when there is one.
    using FileProvider = std::function<std::optional<QString>()>;
    using ImageProvider = std::function<QImage()>;
    // Writes an image as a temporary PNG; runs on a worker thread.
    using TempWriter = std::function<std::optional<QString>(const QImage&)>;

    // Moving further than this (in points, straight-line) turns a press into a drag.
    static constexpr double dragThreshold = 3.0;

    explicit DragOutGesture(QObject* parent = nullptr);
    ~DragOutGesture() override;

    // image: what the thumbnail shows, exported when no full image is given.
    void configure(QImage image, std::function<void()> onClick, FileProvider fileURL,
                   ImageProvider fullImage);
    // Replaces the temporary-file writer (the default writes "Quillmark <timestamp>.png").
    void setTempWriter(TempWriter writer);
    // Asked to run the drag of that file; the view calls dragEnded() once it is over.
    std::function<void(const QString& file)> onStartDrag;

    void press(QPointF point);
    void move(QPointF point);
    void release();
    void dragEnded();

    std::optional<QPointF> downPoint() const { return m_downPoint; }
    bool wantsDrag() const { return m_wantsDrag; }
    bool didStartDrag() const { return m_didStartDrag; }
    std::optional<QString> pendingURL() const { return m_pendingURL; }
    int encodeGeneration() const { return m_encodeGeneration; }

Q_SIGNALS:
    // A background encoding finished (current or stale); for observers and tests.
    void encodingFinished(int generation);

private:
    void startDragIfReady();

    QImage m_image;
    std::function<void()> m_onClick;
    FileProvider m_fileURL;
    ImageProvider m_fullImage;
    TempWriter m_tempWriter;

    std::optional<QPointF> m_downPoint;
    bool m_didStartDrag = false;
    bool m_wantsDrag = false;
    std::optional<QString> m_pendingURL;
    // Stands in for the last drag event: the gesture has moved since the press.
    std::optional<QPointF> m_lastDragPoint;
    int m_encodeGeneration = 0;
};

} // namespace qm
