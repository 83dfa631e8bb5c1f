#pragma once

#include "editor/model/Annotation.h"

#include <QHash>
#include <QImage>
#include <QList>
#include <QObject>
#include <QRectF>
#include <QSet>
#include <QSize>
#include <QUuid>
#include <functional>
#include <optional>

class QPainter;

namespace qm {

class SettingsStore;

// The document of one editor window: the captured image, its annotations (later entries on
// top), the active tool with its remembered style, selection, text focus, crop, backdrop, zoom
// and an undo history of whole-list snapshots. Every published field emits its *Changed signal
// when its value changes. Tool styles, text defaults and the backdrop persist in `settings`
// under "markup." keys, so they carry over to the next editor window. UI thread only.
class EditorModel : public QObject {
    Q_OBJECT

public:
    // Zoom steps in percent, smallest first.
    static const QList<double>& zoomSteps();
    // Snapshots the undo history keeps at most.
    static constexpr int undoLimit = 100;

    // `settings` is the program's one settings store and must outlive the model. Construction
    // writes "markup.fontSize" (a new editor always starts from a size suited to the image).
    EditorModel(const QImage& image, SettingsStore& settings, QObject* parent = nullptr);
    ~EditorModel() override;

    // --- The image ---
    const QImage& baseImage() const { return m_baseImage; }
    QSize pixelSize() const { return m_pixelSize; }
    // The base image in the painter's fastest format, made once.
    const QImage& cgBase() const;
    // The whole image in averaged blocks, made once; pixelate marks show it clipped to their
    // rects, so all of them share one block grid.
    const QImage& pixelatedImage() const;
    // Side of one pixelation block: max(max(width, height) / 55, 8).
    double pixelationBlockSize() const;

    // --- Annotations (published) ---
    const QList<Annotation>& annotations() const { return m_annotations; }
    // Direct edits for the canvas; none takes an undo snapshot (call beginChange() first).
    void setAnnotations(const QList<Annotation>& annotations);
    void appendAnnotation(const Annotation& annotation);
    // Runs `edit` on the annotation with that id; false when there is none.
    bool updateAnnotation(const QUuid& id, const std::function<void(Annotation&)>& edit);
    const Annotation* annotation(const QUuid& id) const;
    std::optional<int> indexOf(const std::optional<QUuid>& id) const;

    // --- Tool and style ---
    AnnotationTool tool() const { return m_tool; }
    // Stores the outgoing tool's style, loads the incoming one, enters or leaves crop mode and
    // ends OCR selection. Runs on every assignment, even of the same tool.
    void setTool(AnnotationTool tool);
    bool ocrSelecting() const { return m_ocrSelecting; }
    void setOcrSelecting(bool on);
    QColor color() const { return m_color; }
    void setColor(const QColor& color); // remembered for the active tool
    double lineWidth() const { return m_lineWidth; }
    void setLineWidth(double width); // remembered for the active tool if width-styled
    // The remembered style of a tool, else the current colour and width.
    ToolStyle style(AnnotationTool tool) const;
    const QHash<AnnotationTool, ToolStyle>& toolStyles() const { return m_toolStyles; }
    void setDefaultColor(const QColor& color, AnnotationTool tool);
    void setDefaultLineWidth(double width, AnnotationTool tool);

    // What the formatting popovers edit: the selected mark's tool while selecting, else the
    // active tool.
    AnnotationTool configurationTool() const;
    bool configurationTargetsSelection() const;
    QColor displayColor() const;
    double displayLineWidth() const;
    // Sets the colour for the configuration tool and recolours the selection; a run of
    // recolours of one selected mark costs a single undo step.
    void applyConfigurationColor(const QColor& color);
    void applyLineWidth(double width); // clamped to 1…40

    // --- Text ---
    double textFontSize() const { return m_textFontSize; }
    void setTextFontSize(double size); // default for new text; persisted on every assignment
    bool textHasBackground() const { return m_textHasBackground; }
    void setTextHasBackground(bool on); // persisted on every assignment
    // The text being typed, else the selected one, if it is a text annotation.
    bool hasTargetedText() const;
    double displayFontSize() const;
    bool displayTextHasBackground() const;
    QColor displayTextColor() const;
    // Resizes the targeted text (the default stays), else sets the default; clamped to 10…300.
    void setFontSize(double size);
    // Flips the targeted text's chip and makes that the default, else flips the default.
    void toggleTextBackground();
    void applyTextColor(const QColor& color);
    std::optional<QUuid> editingTextID() const { return m_editingTextID; }
    void setEditingTextID(const std::optional<QUuid>& id);
    // Ends text editing; a text left empty is removed.
    void commitPendingText();

    // --- Editing and history ---
    // Takes an undo snapshot of the annotations and clears redo.
    void beginChange();
    void undo();
    void redo();
    bool canUndo() const { return !m_undoStack.isEmpty(); }
    bool canRedo() const { return !m_redoStack.isEmpty(); }
    int undoCount() const { return int(m_undoStack.size()); }
    void removeSelected();
    // Moves the selection without a snapshot (the caller takes one when a move starts).
    void translateSelection(QPointF delta);
    // Adds the next numbered step badge at `center` with the current colour.
    void addStep(QPointF center);
    qint64 nextStepNumber() const;

    // --- Selection ---
    std::optional<QUuid> selectedID() const { return m_selectedID; }
    void setSelectedID(const std::optional<QUuid>& id);
    const QSet<QUuid>& selectedIDs() const { return m_selectedIDs; }
    void setSelection(const QSet<QUuid>& ids); // ids that no longer exist are dropped
    void selectOnly(const std::optional<QUuid>& id);
    // The top-most annotation whose bounds, grown by 6, contain `point`.
    std::optional<QUuid> hitTest(QPointF point) const;
    // Annotations whose bounds meet `rect`; empty for a rect of 1 pixel or less either way.
    QSet<QUuid> annotationIDs(const QRectF& rect) const;

    // --- Crop ---
    std::optional<QRectF> cropRect() const { return m_cropRect; }
    std::optional<QRectF> cropEdit() const { return m_cropEdit; }
    void setCropEdit(const std::optional<QRectF>& rect);
    // Keeps the edited crop (a crop under 4 pixels or of the whole image removes it) and
    // returns to the select tool.
    void commitCrop();
    void cancelCrop();

    // --- Backdrop ---
    std::optional<BackgroundStyle> background() const { return m_background; }
    // A backdrop is remembered for the next editor; turning it off forgets nothing.
    void setBackground(const std::optional<BackgroundStyle>& style);
    // The last backdrop used, or the defaults.
    BackgroundStyle savedBackgroundStyle() const;

    // --- Zoom ---
    std::optional<double> zoomPercent() const { return m_zoomPercent; } // none = fit
    void setZoomPercent(const std::optional<double>& percent);
    double fitPercent() const { return m_fitPercent; }
    void setFitPercent(double percent);
    double currentZoomPercent() const { return m_zoomPercent.value_or(m_fitPercent); }
    void zoomIn();
    void zoomOut();
    bool handToolActive() const { return m_handToolActive; }
    void setHandToolActive(bool on);

    // --- Output ---
    // Draws the capture and every mark in image pixels, uncropped and without backdrop: what
    // the canvas shows (under its own zoom transform). `skip` leaves one mark out.
    void paint(QPainter& painter, const QUuid& skip = {}) const;
    // The finished image: the capture with every mark, cropped, on the backdrop if one is set.
    // Pixel size equals the capture's (or the crop's) plus the backdrop's padding. Opaque
    // captures give Format_RGB32, others Format_ARGB32_Premultiplied; the device pixel ratio
    // is 1.
    QImage flatten() const;
    static QImage applyBackground(const QImage& image, const BackgroundStyle& style);

Q_SIGNALS:
    void annotationsChanged();
    void toolChanged();
    void ocrSelectingChanged();
    void colorChanged();
    void lineWidthChanged();
    void selectedIDChanged();
    void selectedIDsChanged();
    void editingTextIDChanged();
    void cropRectChanged();
    void cropEditChanged();
    void backgroundChanged();
    void zoomPercentChanged();
    void fitPercentChanged();
    void handToolActiveChanged();
    void textFontSizeChanged();
    void textHasBackgroundChanged();
    void historyChanged(); // undo or redo availability may have changed

private:
    void updateStoredStyle(AnnotationTool tool, std::optional<QColor> color,
                           std::optional<double> width);
    void renumberSteps();
    void setCropRect(const std::optional<QRectF>& rect);
    void setSelectedIDs(const QSet<QUuid>& ids);
    std::optional<QUuid> textTarget() const;
    const Annotation* selectedAnnotation() const;
    void recolor(const QUuid& id, const QColor& color);
    void paintMarks(QPainter& painter, const QUuid& skip) const;

    SettingsStore& m_settings;
    QHash<AnnotationTool, ToolStyle> m_toolStyles;
    bool m_isLoadingToolStyle = false;
    QList<Annotation> m_annotations;
    AnnotationTool m_tool = AnnotationTool::Arrow;
    bool m_ocrSelecting = false;
    QColor m_color;
    double m_lineWidth = 4;
    std::optional<QUuid> m_selectedID;
    QSet<QUuid> m_selectedIDs;
    bool m_isSynchronizingSelection = false;
    std::optional<QUuid> m_editingTextID;
    std::optional<QRectF> m_cropRect;
    std::optional<QRectF> m_cropEdit;
    std::optional<BackgroundStyle> m_background;
    std::optional<double> m_zoomPercent;
    double m_fitPercent = 100;
    bool m_handToolActive = false;
    double m_textFontSize = 28;
    bool m_textHasBackground = false;
    std::optional<QUuid> m_recolorSnapshotID;
    QImage m_baseImage;
    QSize m_pixelSize;
    QList<QList<Annotation>> m_undoStack;
    QList<QList<Annotation>> m_redoStack;
    mutable std::optional<QImage> m_cgBase;
    mutable std::optional<QImage> m_pixelatedImage;
};

} // namespace qm
