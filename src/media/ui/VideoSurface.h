#pragma once

// The movie's picture, scaled to fit with its shape kept and black around it. Painted from
// one finished image at a time, so a resize or a new frame never shows half of either.

#include <QImage>
#include <QWidget>

namespace qm::media::ui {

class VideoSurface : public QWidget {
    Q_OBJECT
public:
    explicit VideoSurface(QWidget* parent = nullptr);
    void setPicture(const QImage& picture);
    const QImage& picture() const { return m_picture; }
    // Where the picture lands inside the widget.
    QRect pictureRect() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QImage m_picture;
};

} // namespace qm::media::ui
