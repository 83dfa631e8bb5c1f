#pragma once

#include "editor/ui/Popover.h"

#include <QList>

class QComboBox;
class QCheckBox;

namespace qm {

class EditorModel;

// Size, colour and chip of the targeted text, or the defaults for new text.
class TextFormattingPopover : public Popover {
    Q_OBJECT

public:
    static const QList<double>& sizes(); // 12 … 144
    TextFormattingPopover(EditorModel& model, QWidget* parent);

protected:
    void showEvent(QShowEvent* event) override;

private:
    void refresh();
    EditorModel& m_model;
    QComboBox* m_size = nullptr;
    ColorRow* m_colors = nullptr;
    QCheckBox* m_chip = nullptr;
    bool m_refreshing = false;
};

} // namespace qm
