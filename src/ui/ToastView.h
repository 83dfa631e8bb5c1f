#pragma once

#include <QColor>
#include <QString>
#include <QWidget>
#include <functional>

namespace qm {

// What a click on a toast does: the whole pill (show the file), and an optional button at its
// end ("Save As…"). A toast without either lets clicks through to what is beneath.
struct ToastActions {
    std::function<void()> onClick;
    QString buttonLabel;
    std::function<void()> onButton;

    bool any() const { return bool(onClick) || (!buttonLabel.isEmpty() && onButton); }
};

// A toast's pill: a tinted icon before a line of white text on a dark capsule. It is its
// own floating window that never takes focus.
class ToastView final : public QWidget {
    Q_OBJECT
public:
    ToastView(QString text, QString iconName, QColor tint, ToastActions actions = {});

    QString text() const { return text_; }
    // The freedesktop name of the icon shown.
    QString iconName() const { return iconName_; }
    QColor tint() const { return tint_; }
    QString buttonLabel() const { return actions_.buttonLabel; }
    // Where the button is, in the toast's coordinates; empty without one.
    QRectF buttonRect() const;

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    QFont textFont() const;

    double buttonWidth() const;

    QString text_;
    QString iconName_;
    QColor tint_;
    ToastActions actions_;
};

} // namespace qm
