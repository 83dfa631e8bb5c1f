#include "EditorFixture.h"
#include "editor/ui/BackgroundPopover.h"
#include "editor/ui/EditorToolbar.h"
#include "editor/ui/TextFormattingPopover.h"
#include "editor/ui/ToolFormattingPopover.h"
#include "editor/ui/ToolGroupButton.h"

#include <QMenu>

using namespace qm;
using namespace qm::test;

namespace {

class ToolbarTest : public EditorFixture {
protected:
    EditorToolbar* toolbar() const { return view->toolbar(); }
};

TEST_F(ToolbarTest, ToolGroupsRememberTheirLastTool) {
    open();
    ToolGroupButton* rectGroup = toolbar()->groupButton(AnnotationTool::Rectangle);
    ToolGroupButton* arrowGroup = toolbar()->groupButton(AnnotationTool::Line);
    ASSERT_TRUE(rectGroup && arrowGroup);
    EXPECT_NE(rectGroup, arrowGroup);
    EXPECT_EQ(arrowGroup->remembered(), AnnotationTool::Arrow);
    EXPECT_TRUE(arrowGroup->isChecked()); // arrow is the starting tool

    QTest::keyClick(canvas(), Qt::Key_L);
    EXPECT_EQ(arrowGroup->remembered(), AnnotationTool::Line);
    EXPECT_EQ(rectGroup->remembered(), AnnotationTool::Rectangle);
    EXPECT_EQ(arrowGroup->toolTip(), QStringLiteral("Line (L), hold for more tools"));

    // Another tool leaves the group's memory alone; clicking the group brings Line back.
    QTest::keyClick(canvas(), Qt::Key_O);
    EXPECT_EQ(rectGroup->remembered(), AnnotationTool::Ellipse);
    EXPECT_FALSE(arrowGroup->isChecked());
    QTest::mouseClick(arrowGroup, Qt::LeftButton);
    EXPECT_EQ(model->tool(), AnnotationTool::Line);
    EXPECT_TRUE(arrowGroup->isChecked());

    // The held menu lists the group's tools and picks one.
    QMenu* menu = rectGroup->menu();
    ASSERT_EQ(menu->actions().size(), 2);
    menu->actions()[0]->trigger();
    EXPECT_EQ(model->tool(), AnnotationTool::Rectangle);
    EXPECT_EQ(rectGroup->remembered(), AnnotationTool::Rectangle);
}

TEST_F(ToolbarTest, WidthButtonsShowTheDrawnWidth) {
    open();
    ToolFormattingPopover* popover = toolbar()->toolFormattingPopover();
    const auto labels = [&] {
        QStringList out;
        for (QToolButton* b : popover->widthButtons())
            out << b->text();
        return out;
    };
    model->setTool(AnnotationTool::Highlighter);
    EXPECT_EQ(labels(), (QStringList{QStringLiteral("7 px"), QStringLiteral("14 px"),
                                     QStringLiteral("28 px"), QStringLiteral("49 px")}));
    EXPECT_EQ(popover->widthButtons()[0]->toolTip(), QStringLiteral("Set marker width to 7 px"));
    model->setTool(AnnotationTool::Pen);
    EXPECT_EQ(labels(), (QStringList{QStringLiteral("2 px"), QStringLiteral("4 px"),
                                     QStringLiteral("8 px"), QStringLiteral("14 px")}));
    EXPECT_EQ(popover->widthButtons()[3]->toolTip(), QStringLiteral("Set stroke weight to 14 px"));

    // A click applies the width through the model, to the tool's default.
    QTest::mouseClick(toolbar()->strokeButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return popover->isVisible(); }));
    QTest::mouseClick(popover->widthButtons()[2], Qt::LeftButton);
    EXPECT_EQ(model->lineWidth(), 8);
    EXPECT_TRUE(popover->widthButtons()[2]->isChecked());
    popover->close();
}

TEST_F(ToolbarTest, PopoverTitlesAndFootnotesFollowWhatTheyEdit) {
    open();
    ToolFormattingPopover* popover = toolbar()->toolFormattingPopover();
    EXPECT_EQ(popover->title(), QStringLiteral("Stroke color"));
    EXPECT_EQ(popover->footnote(), QStringLiteral("Saved as the default for new arrow marks."));

    model->setTool(AnnotationTool::Step);
    EXPECT_EQ(popover->title(), QStringLiteral("Badge color"));

    const QUuid step = add(Annotation::Step{QPointF(100, 100), 1, 22});
    model->setTool(AnnotationTool::Select);
    model->document().selectOnly(step);
    EXPECT_EQ(popover->title(), QStringLiteral("Badge color"));
    EXPECT_EQ(popover->footnote(),
              QStringLiteral("Changes apply to this annotation and future step number marks."));
    EXPECT_FALSE(popover->widthButtons()[0]->isVisibleTo(popover)); // badges have no width
}

TEST_F(ToolbarTest, BackdropPopoverOffersTheEightPresets) {
    open();
    BackgroundPopover* popover = toolbar()->backgroundPopover();
    ASSERT_EQ(popover->presetButtons().size(), 8);
    EXPECT_EQ(popover->presetButtons()[2]->text(), QStringLiteral("Sunset"));
    QTest::mouseClick(toolbar()->backdropButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return popover->isVisible(); }));
    QTest::mouseClick(popover->presetButtons()[3], Qt::LeftButton);
    ASSERT_TRUE(model->backdrop().background().has_value());
    EXPECT_EQ(model->backdrop().background()->presetID, QStringLiteral("mint"));
    EXPECT_EQ(flatten(*model).size(), QSize(1200 + 96, 800 + 96));
    popover->close();
}

TEST_F(ToolbarTest, UndoRedoAndDoneHaveTheirShortcuts) {
    open();
    bool done = false;
    toolbar()->onDone = [&] { done = true; };
    model->setTool(AnnotationTool::Rectangle);
    drag(QPointF(100, 100), QPointF(200, 200));
    ASSERT_EQ(model->document().annotations().size(), 1);
    // Buttons answer their shortcuts with a short animated press.
    QTest::keyClick(canvas(), Qt::Key_Z, Qt::ControlModifier);
    EXPECT_TRUE(waitUntil([&] { return model->document().annotations().isEmpty(); }));
    QTest::keyClick(canvas(), Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_TRUE(waitUntil([&] { return model->document().annotations().size() == 1; }));
    QTest::keyClick(canvas(), Qt::Key_1, Qt::ControlModifier);
    EXPECT_TRUE(waitUntil([&] { return model->zoom().zoomPercent() == 100.0; }));
    QTest::keyClick(canvas(), Qt::Key_0, Qt::ControlModifier);
    EXPECT_TRUE(waitUntil([&] { return !model->zoom().zoomPercent().has_value(); }));
    QTest::keyClick(canvas(), Qt::Key_Return, Qt::ControlModifier);
    EXPECT_TRUE(waitUntil([&] { return done; }));
}

TEST_F(ToolbarTest, CopyTextCommandsReportTheirOutcome) {
    open(); // a plain light capture: nothing to read
    QMenu* menu = toolbar()->copyTextButton()->menu();
    ASSERT_EQ(menu->actions().size(), 2);
    EXPECT_EQ(menu->actions()[0]->toolTip(), QStringLiteral("Copy all text in the image"));
    menu->actions()[0]->trigger();
    ASSERT_TRUE(
        waitUntil([&] { return toolbar()->ocrResult().has_value(); }, std::chrono::seconds(30)));
    EXPECT_FALSE(*toolbar()->ocrResult());
    // The outcome shows only briefly.
    EXPECT_TRUE(waitUntil([&] { return !toolbar()->ocrResult().has_value(); }));

    EXPECT_EQ(menu->actions()[1]->text(), QStringLiteral("Copy Text from Selection"));
    menu->actions()[1]->trigger();
    EXPECT_TRUE(model->ocrSelecting());
}

} // namespace
