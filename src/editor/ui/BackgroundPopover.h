#pragma once

#include "editor/model/Annotation.h"
#include "editor/ui/Popover.h"

#include <QImage>
#include <QList>
#include <QToolButton>

class QLabel;
class QSlider;
class QCheckBox;

namespace qm {

class EditorModel;

// The export backdrop: the eight gradient presets, padding, corner radius, shadow, removal.
class BackgroundPopover : public Popover {
    Q_OBJECT

public:
    BackgroundPopover(EditorModel& model, QWidget* parent);
    QList<QToolButton*> presetButtons() const { return m_presets; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void refresh();
    BackgroundStyle current() const;
    EditorModel& m_model;
    QLabel* m_preview = nullptr;
    QImage m_previewImage; // the finished image without backdrop, small
    double m_previewScale = 1;
    QList<QToolButton*> m_presets;
    QSlider* m_padding = nullptr;
    QSlider* m_radius = nullptr;
    QCheckBox* m_shadow = nullptr;
    QToolButton* m_remove = nullptr;
    bool m_refreshing = false;
};

} // namespace qm
