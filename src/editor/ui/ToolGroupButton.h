#pragma once

#include "editor/model/Annotation.h"

#include <QList>
#include <QToolButton>

namespace qm {

class EditorModel;

// A toolbar button holding several tools: a click picks the one it shows (the group's last
// used), holding it opens a menu of all of them.
class ToolGroupButton : public QToolButton {
    Q_OBJECT

public:
    ToolGroupButton(EditorModel& model, QList<AnnotationTool> tools, QWidget* parent);
    AnnotationTool remembered() const { return m_remembered; }
    bool isActive() const;
    void select(AnnotationTool tool);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void refresh();
    EditorModel& m_model;
    QList<AnnotationTool> m_tools;
    AnnotationTool m_remembered;
};

} // namespace qm
