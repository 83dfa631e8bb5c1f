#pragma once

#include <QAbstractButton>
#include <QColor>
#include <QString>

namespace qm {

// A round icon button of the recording's control bar: a freedesktop icon in one colour on a
// faint disc that brightens under the pointer. Its tool-tip names the action.
class ControlButton final : public QAbstractButton {
    Q_OBJECT
public:
    ControlButton(QString iconName, const QString& help, QColor tint, QWidget* parent = nullptr);

    QString iconName() const { return m_iconName; }
    void setSymbol(const QString& iconName, const QString& help);
    QColor tint() const { return m_tint; }

    QSize sizeHint() const override { return {30, 30}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    QString m_iconName;
    QColor m_tint;
    bool m_hovering = false;
};

} // namespace qm
