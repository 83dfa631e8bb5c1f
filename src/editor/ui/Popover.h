#pragma once

#include <QColor>
#include <QFrame>
#include <QList>
#include <QToolButton>
#include <QWidget>

class QLabel;

namespace qm {

// A floating panel under a toolbar button; closes when the user clicks elsewhere.
class Popover : public QFrame {
    Q_OBJECT

public:
    explicit Popover(QWidget* parent);
    void showBelow(QWidget* anchor);
};

// Colour swatches plus a custom colour; reports the colour picked.
class ColorRow : public QWidget {
    Q_OBJECT

public:
    ColorRow(const QString& tooltip, QWidget* parent);
    void setCurrent(const QColor& color);

Q_SIGNALS:
    void picked(const QColor& color);

private:
    QList<QToolButton*> m_swatches;
    QToolButton* m_custom = nullptr;
    QColor m_current;
};

// The pieces the popovers share.
namespace popover {
// A round colour dot, as the swatches and the stroke button show colours.
QIcon colorDotIcon(const QColor& color);
// A bold heading over a group of controls.
QLabel* sectionTitle(const QString& text, QWidget* parent);
// A small dimmed note under the controls.
QLabel* footnoteLabel(QWidget* parent);
} // namespace popover

} // namespace qm
