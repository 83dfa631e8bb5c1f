#pragma once

#include "editor/model/Annotation.h"

#include <QList>
#include <QMenu>
#include <QToolButton>
#include <QWidget>
#include <functional>
#include <optional>

namespace qm {

class EditorModel;
class ToolFormattingPopover;
class TextFormattingPopover;
class BackgroundPopover;
class ToolGroupButton;

// The editor's toolbar: the tools, formatting popovers, undo and redo, delete, copy text,
// Ask Claude, copy image and Done. It keeps no document state; every control reads and writes
// the model. When the window is too narrow for all of it, the commands at the end move into
// a "more" menu.
class EditorToolbar : public QWidget {
    Q_OBJECT

public:
    EditorToolbar(EditorModel& model, QWidget* parent = nullptr);

    std::function<void()> onCopy;
    std::function<void()> onDone;
    // Shows "Ask Claude about this image" while set (empty hides it).
    void setAskAI(std::function<void()> askAI);

    // For tests and the view: the controls by what they do.
    QToolButton* toolButton(AnnotationTool tool) const; // the single button or group holding it
    ToolGroupButton* groupButton(AnnotationTool tool) const;
    QToolButton* strokeButton() const { return m_stroke; }
    QToolButton* textButton() const { return m_text; }
    QToolButton* backdropButton() const { return m_backdrop; }
    QToolButton* copyTextButton() const { return m_copyText; }
    QToolButton* doneButton() const { return m_done; }
    QToolButton* askAIButton() const { return m_askAI; }
    QToolButton* copyImageButton() const { return m_copyImage; }
    // The "more" menu's button, shown while the commands at the end don't fit.
    QToolButton* moreButton() const { return m_more; }
    ToolFormattingPopover* toolFormattingPopover() const { return m_toolPopover; }
    TextFormattingPopover* textFormattingPopover() const { return m_textPopover; }
    BackgroundPopover* backgroundPopover() const { return m_backgroundPopover; }

    // Reads every text in the capture onto the clipboard; the button shows the outcome.
    void copyAllText();
    // Starts the drag-over-text mode of the canvas.
    void copyTextFromSelection();
    // The outcome of the last copy-text command while it is shown.
    std::optional<bool> ocrResult() const { return m_ocrResult; }

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    QToolButton* makeButton(const QString& iconName, const QString& tooltip);
    void selectTool(AnnotationTool tool);
    void refresh();
    void refreshBackdrop();
    void showOcrResult(bool found);
    // Moves the commands at the end into the "more" menu when they don't fit, and back.
    void updateOverflow();
    QList<QToolButton*> overflowingButtons() const;
    void fillMoreMenu();

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
    QToolButton* m_askAI = nullptr;
    QToolButton* m_more = nullptr;
    QMenu* m_moreMenu = nullptr;
    std::function<void()> m_onAskAI;
    bool m_collapsed = false;
    ToolFormattingPopover* m_toolPopover = nullptr;
    TextFormattingPopover* m_textPopover = nullptr;
    BackgroundPopover* m_backgroundPopover = nullptr;
    std::optional<bool> m_ocrResult;
    bool m_ocrRunning = false;
    QColor m_strokeIconColor;
    QString m_backdropIconKey;
};

} // namespace qm
