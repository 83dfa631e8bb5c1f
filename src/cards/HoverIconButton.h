#pragma once

#include <QAbstractButton>
#include <QColor>
#include <QString>

namespace qm {

// A round icon button of a capture card: an icon (by freedesktop name) on a dark disc that
// brightens under the pointer (red for destructive actions). Its tool-tip names the action.
// The card fades its buttons in and out with the pointer; a button keeps taking clicks while
// faded, so a click never waits for the fade.
class HoverIconButton final : public QAbstractButton {
    Q_OBJECT
public:
    HoverIconButton(QString iconName, const QString& help, QWidget* parent = nullptr);

    QString iconName() const { return m_iconName; }
    void setIconName(const QString& iconName);
    void setHelp(const QString& help);
    void setDestructive(bool destructive);
    bool isDestructive() const { return m_destructive; }
    // Draws the icon in this colour instead of white (the pinned pin).
    void setTint(QColor tint);
    // 0 = invisible, 1 = fully shown.
    void setReveal(double reveal);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    QString m_iconName;
    QColor m_tint = Qt::white;
    bool m_destructive = false;
    bool m_hovering = false;
    double m_reveal = 0.0;
};

} // namespace qm
