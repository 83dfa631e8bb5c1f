#pragma once

#include "editor/model/Annotation.h"

#include <QFrame>
#include <QImage>
#include <QList>
#include <QPointer>
#include <QToolButton>
#include <QWidget>
#include <functional>
#include <optional>

class QLabel;
class QComboBox;
class QCheckBox;
class QSlider;
class QGridLayout;

namespace qm {

class EditorModel;

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

// The editor's toolbar: the tools, formatting popovers, undo and redo, delete, copy text,
// copy image and Done. It keeps no document state; every control reads and writes the model.
class EditorToolbar : public QWidget {
    Q_OBJECT

public:
    EditorToolbar(EditorModel& model, QWidget* parent = nullptr);

    std::function<void()> onCopy;
    std::function<void()> onDone;

    // For tests and the view: the controls by what they do.
    QToolButton* toolButton(AnnotationTool tool) const; // the single button or group holding it
    ToolGroupButton* groupButton(AnnotationTool tool) const;
    QToolButton* strokeButton() const { return m_stroke; }
    QToolButton* textButton() const { return m_text; }
    QToolButton* backdropButton() const { return m_backdrop; }
    QToolButton* copyTextButton() const { return m_copyText; }
    QToolButton* doneButton() const { return m_done; }
    ToolFormattingPopover* toolFormattingPopover() const { return m_toolPopover; }
    TextFormattingPopover* textFormattingPopover() const { return m_textPopover; }
    BackgroundPopover* backgroundPopover() const { return m_backgroundPopover; }

    // Reads every text in the capture onto the clipboard; the button shows the outcome.
    void copyAllText();
    // Starts the drag-over-text mode of the canvas.
    void copyTextFromSelection();
    // The outcome of the last copy-text command while it is shown.
    std::optional<bool> ocrResult() const { return m_ocrResult; }

private:
    QToolButton* makeButton(const QString& symbol, const QString& tooltip);
    void selectTool(AnnotationTool tool);
    void refresh();
    void refreshBackdrop();
    void showOcrResult(bool found);

    EditorModel& m_model;
    QList<std::pair<AnnotationTool, QToolButton*>> m_toolButtons;
    QList<ToolGroupButton*> m_groups;
    QToolButton* m_stroke = nullptr;
    QToolButton* m_text = nullptr;
    QToolButton* m_backdrop = nullptr;
    QToolButton* m_undo = nullptr;
    QToolButton* m_redo = nullptr;
    QToolButton* m_delete = nullptr;
    QToolButton* m_applyCrop = nullptr;
    QToolButton* m_cancelCrop = nullptr;
    QToolButton* m_copyText = nullptr;
    QToolButton* m_copyImage = nullptr;
    QToolButton* m_done = nullptr;
    ToolFormattingPopover* m_toolPopover = nullptr;
    TextFormattingPopover* m_textPopover = nullptr;
    BackgroundPopover* m_backgroundPopover = nullptr;
    std::optional<bool> m_ocrResult;
    bool m_ocrRunning = false;
    QColor m_strokeIconColor;
    QString m_backdropIconKey;
};

} // namespace qm
