#include "editor/model/EditorModel.h"

#include "base/SettingsStore.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>

using namespace qm;

namespace {

class EditorModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        path = dir.filePath(QStringLiteral("Quillmark.conf"));
        store = std::make_unique<IniSettingsStore>(path);
    }

    std::unique_ptr<EditorModel> makeModel(int width = 800, int height = 600) {
        QImage image(width, height, QImage::Format_RGB32);
        image.fill(Qt::white);
        return std::make_unique<EditorModel>(image, *store);
    }

    // A fresh store on the same file, as the next editor window would see it.
    void reopenStore() {
        store.reset();
        store = std::make_unique<IniSettingsStore>(path);
    }

    // What is on disk once the store has written its pending changes, read by a store of its
    // own (QSettings' process-wide cache may answer from an older copy of the file).
    QVariant onDisk(const QString& key) const {
        store->sync();
        return IniSettingsStore(path).value(key).value_or(QVariant());
    }

    static QUuid add(EditorModel& m, Annotation::Shape shape, QColor color = Qt::red) {
        Annotation a(std::move(shape), color);
        m.document().beginChange();
        m.document().appendAnnotation(a);
        return a.id();
    }

    QTemporaryDir dir;
    QString path;
    std::unique_ptr<IniSettingsStore> store;
};

QList<qint64> stepNumbers(const EditorModel& m) {
    QList<qint64> numbers;
    for (const Annotation& a : m.document().annotations())
        if (const auto* s = a.as<Annotation::Step>())
            numbers << s->number;
    return numbers;
}

QList<QPointF> stepCenters(const EditorModel& m) {
    QList<QPointF> centers;
    for (const Annotation& a : m.document().annotations())
        if (const auto* s = a.as<Annotation::Step>())
            centers << s->center;
    return centers;
}

} // namespace

TEST_F(EditorModelTest, FreshEditorStartsWithRedArrowAndYellowHighlighter) {
    auto m = makeModel(1000, 2000);
    EXPECT_EQ(m->tool(), AnnotationTool::Arrow);
    EXPECT_EQ(hexRGB(m->color()), QStringLiteral("#FF3B30"));
    EXPECT_EQ(m->lineWidth(), 4);
    for (AnnotationTool t : styledTools()) {
        const ToolStyle s = m->style(t);
        EXPECT_EQ(hexRGB(s.color), t == AnnotationTool::Highlighter ? QStringLiteral("#FFD60A")
                                                                    : QStringLiteral("#FF3B30"))
            << toolId(t).toStdString();
        EXPECT_EQ(s.lineWidth, 4);
    }
    EXPECT_EQ(m->styles().textFontSize(), 50);
    EXPECT_FALSE(m->styles().textHasBackground());
    EXPECT_FALSE(m->backdrop().background());
    EXPECT_EQ(makeModel(800, 600)->styles().textFontSize(), 28); // never smaller than 28
}

TEST_F(EditorModelTest, ReadOnlyFallbacksAreUsedButNeverWritten) {
    store->setValue(QStringLiteral("markup.colorHex"), QStringLiteral("#00ff00"));
    store->setValue(QStringLiteral("markup.highlightColorHex"), QStringLiteral("not a colour"));
    store->setValue(QStringLiteral("markup.lineWidth"), 7.0);
    store->setValue(QStringLiteral("markup.tool.line.lineWidth"), -2.0);
    auto m = makeModel();
    EXPECT_EQ(hexRGB(m->style(AnnotationTool::Rectangle).color), QStringLiteral("#00FF00"));
    EXPECT_EQ(hexRGB(m->style(AnnotationTool::Highlighter).color), QStringLiteral("#FFD60A"));
    EXPECT_EQ(m->style(AnnotationTool::Line).lineWidth, 7); // non-positive stored width ignored
    EXPECT_EQ(m->lineWidth(), 7);

    m->setColor(Qt::blue);
    m->setLineWidth(12);
    m->setTool(AnnotationTool::Pen);
    EXPECT_EQ(onDisk(QStringLiteral("markup.colorHex")).toString(), QStringLiteral("#00ff00"));
    EXPECT_EQ(onDisk(QStringLiteral("markup.lineWidth")).toDouble(), 7);
    EXPECT_EQ(onDisk(QStringLiteral("markup.highlightColorHex")).toString(),
              QStringLiteral("not a colour"));
}

TEST_F(EditorModelTest, ToolStylesAreRememberedAcrossSwitchesAndEditors) {
    {
        auto m = makeModel();
        QSignalSpy colorSpy(m.get(), &EditorModel::colorChanged);
        m->setTool(AnnotationTool::Pen);
        m->setColor(QColor(0, 0, 255));
        m->setLineWidth(9);
        m->setTool(AnnotationTool::Arrow);
        EXPECT_EQ(hexRGB(m->color()), QStringLiteral("#FF3B30"));
        EXPECT_EQ(m->lineWidth(), 4);
        m->setTool(AnnotationTool::Pen);
        EXPECT_EQ(m->color(), QColor(0, 0, 255));
        EXPECT_EQ(m->lineWidth(), 9);
        EXPECT_EQ(colorSpy.count(), 3); // blue, back to red, blue again

        // Text keeps a colour only: a width chosen with it lands nowhere.
        m->setTool(AnnotationTool::Text);
        m->setLineWidth(30);
        EXPECT_EQ(m->style(AnnotationTool::Text).lineWidth, 4);
        m->setTool(AnnotationTool::Rectangle);
        EXPECT_EQ(m->lineWidth(), 4);
    }
    EXPECT_EQ(onDisk(QStringLiteral("markup.tool.pen.colorHex")).toString(),
              QStringLiteral("#0000FF"));
    EXPECT_FALSE(onDisk(QStringLiteral("markup.tool.text.lineWidth")).isValid());

    reopenStore();
    auto next = makeModel();
    EXPECT_EQ(hexRGB(next->color()), QStringLiteral("#FF3B30")); // arrow untouched
    next->setTool(AnnotationTool::Pen);
    EXPECT_EQ(next->color(), QColor(0, 0, 255));
    EXPECT_EQ(next->lineWidth(), 9);
}

TEST_F(EditorModelTest, FontSizeOfAnEarlierEditorDoesNotCarryOverButChipDoes) {
    {
        auto m = makeModel(800, 2000);
        m->setFontSize(80);
        m->toggleTextBackground();
        EXPECT_EQ(onDisk(QStringLiteral("markup.fontSize")).toDouble(), 80);
    }
    reopenStore();
    auto next = makeModel(800, 2000);
    EXPECT_EQ(next->styles().textFontSize(), 50);
    EXPECT_TRUE(next->styles().textHasBackground());
    EXPECT_EQ(onDisk(QStringLiteral("markup.fontSize")).toDouble(), 50);
}

TEST_F(EditorModelTest, UndoKeepsTheLastHundredSnapshots) {
    auto m = makeModel();
    for (int i = 0; i < 101; ++i)
        add(*m, Annotation::Rectangle{{double(i), 0, 10, 10}});
    EXPECT_EQ(m->document().undoCount(), 100);
    int undone = 0;
    while (m->document().canUndo()) {
        m->document().undo();
        ++undone;
    }
    EXPECT_EQ(undone, 100);
    ASSERT_EQ(m->document().annotations().size(), 1); // the very first change is out of reach
    m->document().undo();
    EXPECT_EQ(m->document().annotations().size(), 1);
    while (m->document().canRedo())
        m->document().redo();
    EXPECT_EQ(m->document().annotations().size(), 101);

    // A new change after undo drops the redo branch.
    m->document().undo();
    add(*m, Annotation::Ellipse{{0, 0, 5, 5}});
    EXPECT_FALSE(m->document().canRedo());
}

TEST_F(EditorModelTest, RecolouringOneSelectionIsOneUndoStep) {
    auto m = makeModel();
    const QUuid arrow = add(*m, Annotation::Arrow{{0, 0}, {100, 100}}, Qt::red);
    const QUuid rect = add(*m, Annotation::Rectangle{{200, 200, 50, 50}}, Qt::green);
    m->setTool(AnnotationTool::Select);
    m->document().selectOnly(arrow);
    const int before = m->document().undoCount();
    for (QColor c : {Qt::blue, Qt::cyan, Qt::magenta, Qt::yellow, Qt::black})
        m->applyConfigurationColor(c);
    EXPECT_EQ(m->document().undoCount(), before + 1);
    EXPECT_EQ(m->document().annotation(arrow)->color, QColor(Qt::black));
    EXPECT_EQ(m->style(AnnotationTool::Arrow).color, QColor(Qt::black)); // the default follows

    m->document().selectOnly(rect);
    EXPECT_EQ(m->configurationTool(), AnnotationTool::Rectangle);
    EXPECT_EQ(m->displayColor(), QColor(Qt::green));
    m->applyConfigurationColor(Qt::gray);
    EXPECT_EQ(m->document().undoCount(), before + 2);

    m->document().undo();
    EXPECT_EQ(m->document().annotation(rect)->color, QColor(Qt::green));
    m->document().undo();
    EXPECT_EQ(m->document().annotation(arrow)->color, QColor(Qt::red));
}

TEST_F(EditorModelTest, ConfigurationTargetsTheSelectionOnlyForItsOwnTool) {
    auto m = makeModel();
    const QUuid text = add(*m, Annotation::Text{{0, 0, 100, 30}, QStringLiteral("a"), 30});
    const QUuid pen = add(*m, Annotation::Pen{{{0, 0}, {9, 9}}}, Qt::blue);
    m->document().updateAnnotation(pen, [](Annotation& a) { a.lineWidth = 13; });
    m->document().selectOnly(pen);

    // With the arrow tool active, the pen selection is not what the popover edits.
    EXPECT_FALSE(m->configurationTargetsSelection());
    EXPECT_EQ(m->displayLineWidth(), 4);
    m->setTool(AnnotationTool::Select);
    m->document().selectOnly(pen);
    EXPECT_TRUE(m->configurationTargetsSelection());
    EXPECT_EQ(m->displayLineWidth(), 13);
    const int before = m->document().undoCount();
    m->applyLineWidth(99); // clamped
    EXPECT_EQ(m->document().annotation(pen)->lineWidth, 40);
    EXPECT_EQ(m->style(AnnotationTool::Pen).lineWidth, 40);
    m->applyLineWidth(2);
    EXPECT_EQ(m->document().undoCount(), before + 2); // widths do not coalesce

    // Text has no width: nothing changes.
    m->document().selectOnly(text);
    m->applyLineWidth(20);
    EXPECT_EQ(m->document().annotation(text)->lineWidth, 4);
    EXPECT_EQ(m->document().undoCount(), before + 2);
}

TEST_F(EditorModelTest, TextSizeAndChipOnTargetedTextVersusDefaults) {
    auto m = makeModel();
    m->setFontSize(5);
    EXPECT_EQ(m->styles().textFontSize(), 10);
    m->setFontSize(40);
    const QUuid text = add(*m, Annotation::Text{{0, 0, 100, 30}, QStringLiteral("a"), 30});
    m->document().setEditingTextID(text);
    ASSERT_TRUE(m->hasTargetedText());
    m->setFontSize(500);
    EXPECT_EQ(m->document().annotation(text)->as<Annotation::Text>()->fontSize, 300);
    EXPECT_EQ(m->styles().textFontSize(), 40); // the default stays
    EXPECT_EQ(m->displayFontSize(), 300);

    m->toggleTextBackground();
    EXPECT_TRUE(m->document().annotation(text)->textBackground);
    EXPECT_TRUE(m->styles().textHasBackground()); // the default follows
    m->applyTextColor(Qt::blue);
    m->applyTextColor(Qt::darkBlue);
    EXPECT_EQ(m->document().annotation(text)->color, QColor(Qt::darkBlue));
    EXPECT_EQ(m->displayTextColor(), QColor(Qt::darkBlue));

    m->document().commitPendingText();
    EXPECT_FALSE(m->hasTargetedText());
    EXPECT_EQ(m->displayFontSize(), 40);
    EXPECT_EQ(m->displayTextColor(), QColor(Qt::darkBlue));
}

TEST_F(EditorModelTest, CommittingTextDropsOnlyAnEmptyOne) {
    auto m = makeModel();
    const QUuid blank = add(*m, Annotation::Text{{0, 0, 100, 30}, QStringLiteral(" "), 30});
    m->document().setEditingTextID(blank);
    m->document().commitPendingText();
    EXPECT_TRUE(m->document().annotation(blank)); // white space is content
    const QUuid empty = add(*m, Annotation::Text{{0, 0, 100, 30}, QString(), 30});
    const int snapshots = m->document().undoCount();
    m->document().setEditingTextID(empty);
    m->document().commitPendingText();
    EXPECT_FALSE(m->document().annotation(empty));
    EXPECT_FALSE(m->document().editingTextID());
    EXPECT_EQ(m->document().undoCount(), snapshots);
}

TEST_F(EditorModelTest, StepsRenumberThroughDeleteUndoAndRedo) {
    auto m = makeModel(800, 2000);
    EXPECT_EQ(m->document().nextStepNumber(), 1);
    m->addStep({10, 10});
    add(*m, Annotation::Rectangle{{0, 0, 5, 5}});
    m->addStep({20, 20});
    m->addStep({30, 30});
    EXPECT_EQ(stepNumbers(*m), (QList<qint64>{1, 2, 3}));
    EXPECT_EQ(m->document().annotations().last().as<Annotation::Step>()->radius, 40);
    EXPECT_TRUE(m->document().selectedIDs().isEmpty()); // a new step is not selected

    m->document().selectOnly(m->document().annotations()[2].id());
    m->document().removeSelected();
    EXPECT_EQ(stepNumbers(*m), (QList<qint64>{1, 2}));
    EXPECT_EQ(stepCenters(*m), (QList<QPointF>{{10, 10}, {30, 30}}));
    EXPECT_TRUE(m->document().selectedIDs().isEmpty());
    EXPECT_EQ(m->document().nextStepNumber(), 3);

    m->document().undo();
    EXPECT_EQ(stepNumbers(*m), (QList<qint64>{1, 2, 3}));
    EXPECT_EQ(stepCenters(*m), (QList<QPointF>{{10, 10}, {20, 20}, {30, 30}}));
    m->document().redo();
    EXPECT_EQ(stepNumbers(*m), (QList<qint64>{1, 2}));
}

TEST_F(EditorModelTest, SelectionFieldsStayInStep) {
    auto m = makeModel();
    const QUuid a = add(*m, Annotation::Rectangle{{0, 0, 10, 10}});
    const QUuid b = add(*m, Annotation::Rectangle{{50, 50, 10, 10}});
    QSignalSpy ids(&m->document(), &AnnotationDocument::selectedIDsChanged);

    m->document().setSelection({a, b, QUuid::createUuid()});
    EXPECT_EQ(m->document().selectedIDs(), (QSet<QUuid>{a, b}));
    EXPECT_FALSE(m->document().selectedID());
    m->document().setSelection({b});
    EXPECT_EQ(m->document().selectedID(), b);
    m->document().setSelectedID(a);
    EXPECT_EQ(m->document().selectedIDs(), QSet<QUuid>{a});
    m->document().setSelectedID(std::nullopt);
    EXPECT_TRUE(m->document().selectedIDs().isEmpty());
    EXPECT_EQ(ids.count(), 4);

    m->document().selectOnly(a);
    m->document().translateSelection({5, 7});
    EXPECT_EQ(m->document().annotation(a)->bounds(), QRectF(5, 7, 10, 10));
    EXPECT_EQ(m->document().annotation(b)->bounds(), QRectF(50, 50, 10, 10));
    m->document().undo(); // clears the selection
    EXPECT_FALSE(m->document().selectedID());
    EXPECT_TRUE(m->document().selectedIDs().isEmpty());
}

TEST_F(EditorModelTest, SelectionNeverNamesADeletedMarkAndListenersSeeItWhole) {
    auto m = makeModel();
    AnnotationDocument& doc = m->document();
    const QUuid a = add(*m, Annotation::Rectangle{{0, 0, 10, 10}});
    const QUuid b = add(*m, Annotation::Rectangle{{50, 50, 10, 10}});
    // Whichever signal a listener hears, the single id and the set agree.
    int checks = 0;
    const auto agree = [&] {
        ++checks;
        const QSet<QUuid>& ids = doc.selectedIDs();
        EXPECT_EQ(doc.selectedID(),
                  ids.size() == 1 ? std::optional<QUuid>(*ids.cbegin()) : std::nullopt);
    };
    QObject::connect(&doc, &AnnotationDocument::selectedIDChanged, agree);
    QObject::connect(&doc, &AnnotationDocument::selectedIDsChanged, agree);

    doc.setSelectedID(a);
    doc.setSelection({a, b});
    doc.removeSelected();
    EXPECT_TRUE(doc.annotations().isEmpty());
    EXPECT_TRUE(doc.selectedIDs().isEmpty());
    doc.undo(); // both back, nothing selected
    EXPECT_EQ(doc.annotations().size(), 2);
    EXPECT_TRUE(doc.selectedIDs().isEmpty());
    doc.selectOnly(b);
    doc.redo(); // b is gone again; so is its selection
    EXPECT_TRUE(doc.annotations().isEmpty());
    EXPECT_FALSE(doc.selectedID());
    EXPECT_EQ(doc.selectedAnnotation(), nullptr);
    doc.setSelection({a}); // ids of deleted marks are dropped
    EXPECT_TRUE(doc.selectedIDs().isEmpty());
    EXPECT_GE(checks, 8);
}

TEST_F(EditorModelTest, HitTestingHasASixPixelToleranceAndPrefersTheTopMark) {
    auto m = makeModel();
    const QUuid lower = add(*m, Annotation::Rectangle{{100, 100, 200, 100}});
    EXPECT_EQ(m->document().hitTest({95, 150}), lower);
    EXPECT_EQ(m->document().hitTest({150, 206}), lower);
    EXPECT_FALSE(m->document().hitTest({93, 150}));
    EXPECT_FALSE(m->document().hitTest({150, 207.5}));
    const QUuid upper = add(*m, Annotation::Ellipse{{250, 150, 100, 100}});
    EXPECT_EQ(m->document().hitTest({260, 160}), upper);
    EXPECT_EQ(m->document().hitTest({120, 120}), lower);

    // Marquee: a drag of a pixel or less selects nothing.
    EXPECT_TRUE(m->document().annotationIDs({90, 90, 1, 300}).isEmpty());
    EXPECT_EQ(m->document().annotationIDs({0, 0, 120, 120}), QSet<QUuid>{lower});
    EXPECT_EQ(m->document().annotationIDs({240, 140, 20, 20}), (QSet<QUuid>{lower, upper}));
    EXPECT_TRUE(m->document().annotationIDs({0, 0, 95, 95}).isEmpty()); // no tolerance here
}

TEST_F(EditorModelTest, CropCommitClampsAndDropsSliversAndWholeImage) {
    auto m = makeModel(800, 600);
    QSignalSpy cropSpy(&m->document(), &AnnotationDocument::cropRectChanged);
    m->setTool(AnnotationTool::Crop);
    EXPECT_EQ(m->document().cropEdit(), QRectF(0, 0, 800, 600));

    m->document().setCropEdit(QRectF(700.5, -20, 300, 200.25)); // partly outside
    m->commitCrop();
    EXPECT_EQ(m->document().cropRect(), QRectF(700.5, 0, 99.5, 180.25)); // kept unrounded
    EXPECT_EQ(m->tool(), AnnotationTool::Select);
    EXPECT_FALSE(m->document().cropEdit());

    m->setTool(AnnotationTool::Crop); // resumes from the committed crop
    EXPECT_EQ(m->document().cropEdit(), m->document().cropRect());
    m->document().setCropEdit(QRectF(10, 10, 3, 500));
    m->commitCrop();
    EXPECT_FALSE(m->document().cropRect());

    m->setTool(AnnotationTool::Crop);
    m->document().setCropEdit(QRectF(100, 100, 200, 200));
    m->cancelCrop();
    EXPECT_FALSE(m->document().cropRect());
    m->setTool(AnnotationTool::Crop);
    m->document().setCropEdit(QRectF(100, 100, 200, 200));
    m->commitCrop();
    ASSERT_TRUE(m->document().cropRect());
    m->setTool(AnnotationTool::Crop);
    m->document().setCropEdit(QRectF(0.3, 0.2, 799.5, 599.6)); // rounds out to the whole image
    m->commitCrop();
    EXPECT_FALSE(m->document().cropRect());
    m->setTool(AnnotationTool::Crop);
    m->document().setCropEdit(QRectF(900, 700, 50, 50)); // nothing left after clamping
    m->commitCrop();
    EXPECT_FALSE(m->document().cropRect());
    EXPECT_EQ(cropSpy.count(), 4);

    // Switching to another tool leaves crop mode without committing.
    m->setTool(AnnotationTool::Crop);
    m->document().setCropEdit(QRectF(100, 100, 200, 200));
    m->setTool(AnnotationTool::Pen);
    EXPECT_FALSE(m->document().cropEdit());
    EXPECT_FALSE(m->document().cropRect());
}

TEST(ZoomState, FitsAtFullSizeOrAWholeFractionNeverInBetween) {
    EXPECT_EQ(ZoomState::crispFitPercent(100), 100);
    EXPECT_EQ(ZoomState::crispFitPercent(99.99), 100); // rounding of the viewport's size
    EXPECT_EQ(ZoomState::crispFitPercent(96), 50);
    EXPECT_DOUBLE_EQ(ZoomState::crispFitPercent(49), 100.0 / 3);
    EXPECT_EQ(ZoomState::crispFitPercent(33), 25);
    EXPECT_EQ(ZoomState::crispFitPercent(24.9), 20);
    EXPECT_EQ(ZoomState::crispFitPercent(10.5), 10);
    EXPECT_EQ(ZoomState::crispFitPercent(4), 4); // too large for any step: fits exactly
}

TEST_F(EditorModelTest, ZoomStepsAroundTheFitAndTheEnds) {
    auto m = makeModel();
    const auto zoomInFrom = [&](double current) {
        m->zoom().setZoomPercent(current);
        m->zoom().zoomIn();
        return *m->zoom().zoomPercent();
    };
    const auto zoomOutFrom = [&](double current) {
        m->zoom().setZoomPercent(current);
        m->zoom().zoomOut();
        return *m->zoom().zoomPercent();
    };
    m->zoom().setFitPercent(33.3);
    m->zoom().zoomIn();
    EXPECT_EQ(m->zoom().zoomPercent(), 50);
    EXPECT_EQ(zoomInFrom(100), 150);
    EXPECT_EQ(zoomInFrom(100.4), 150);
    EXPECT_EQ(zoomInFrom(149.6), 200); // within half a percent counts as on the step
    EXPECT_EQ(zoomInFrom(800), 800);
    EXPECT_EQ(zoomOutFrom(10), 10);
    EXPECT_EQ(zoomOutFrom(100.2), 75);
    EXPECT_EQ(zoomOutFrom(5000), 800);
    m->zoom().setZoomPercent(std::nullopt);
    m->zoom().setFitPercent(12);
    m->zoom().zoomOut();
    EXPECT_EQ(m->zoom().zoomPercent(), 10);
}

TEST_F(EditorModelTest, BackdropIsRememberedButStartsOff) {
    {
        auto m = makeModel();
        const BackgroundStyle defaults = m->backdrop().savedBackgroundStyle();
        EXPECT_EQ(defaults, (BackgroundStyle{QStringLiteral("indigo"), 48, 18, true}));
        m->backdrop().setBackground(BackgroundStyle{QStringLiteral("mint"), 64, 0, false});
        m->backdrop().setBackground(std::nullopt); // turning it off forgets nothing
    }
    reopenStore();
    auto next = makeModel();
    EXPECT_FALSE(next->backdrop().background());
    EXPECT_EQ(next->backdrop().savedBackgroundStyle(),
              (BackgroundStyle{QStringLiteral("mint"), 64, 0, false}));

    store->setValue(QStringLiteral("markup.background.padding"), 10.0);
    store->setValue(QStringLiteral("markup.background.cornerRadius"), -5.0);
    store->setValue(QStringLiteral("markup.background.shadow"), QStringLiteral("maybe"));
    EXPECT_EQ(next->backdrop().savedBackgroundStyle(),
              (BackgroundStyle{QStringLiteral("mint"), 48, 0, true}));
}

TEST_F(EditorModelTest, PixelationSourceIsMadeOnce) {
    auto m = makeModel(1100, 300);
    EXPECT_EQ(m->document().pixelationBlockSize(), 20);
    EXPECT_EQ(makeModel(100, 50)->document().pixelationBlockSize(), 8);
    const qint64 key = m->document().pixelatedImage().cacheKey();
    add(*m, Annotation::Pixelate{{0, 0, 50, 50}});
    add(*m, Annotation::Pixelate{{100, 0, 50, 50}});
    EXPECT_EQ(m->document().pixelatedImage().cacheKey(), key);
}
