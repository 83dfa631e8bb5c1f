#pragma once

#include <QColor>
#include <QString>
#include <QWidget>

namespace qm {

// A toast's pill: a tinted icon before a line of white text on a dark capsule. It is its
// own floating window that neither takes focus nor receives clicks.
class ToastView final : public QWidget {
    Q_OBJECT
public:
    ToastView(QString text, QString iconName, QColor tint);

    QString text() const { return text_; }
    // The freedesktop name of the icon shown.
    QString iconName() const { return iconName_; }
    QColor tint() const { return tint_; }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    QFont textFont() const;

    QString text_;
    QString iconName_;
    QColor tint_;
};

} // namespace qm
