#pragma once

#include "editor/model/Annotation.h"
#include "editor/ui/Popover.h"

#include <QList>
#include <QToolButton>

class QLabel;

namespace qm {

class EditorModel;

// Stroke (or badge) colour and weight of the tool the formatting applies to: the selected
// mark's when one is selected, else the active tool's.
class ToolFormattingPopover : public Popover {
    Q_OBJECT

public:
    static const QList<double>& widths(); // 2, 4, 8, 14
    // "<n> px": the drawn width, so the highlighter's (3.5 times wider) read 7 … 49.
    static QString widthLabel(AnnotationTool tool, double width);

    ToolFormattingPopover(EditorModel& model, QWidget* parent);
    QString title() const;
    QList<QToolButton*> widthButtons() const { return m_widthButtons; }
    QString footnote() const;

private:
    void refresh();
    EditorModel& m_model;
    QLabel* m_title = nullptr;
    ColorRow* m_colors = nullptr;
    QLabel* m_weightTitle = nullptr;
    QWidget* m_widthRow = nullptr;
    QList<QToolButton*> m_widthButtons;
    QLabel* m_footnote = nullptr;
};

} // namespace qm
