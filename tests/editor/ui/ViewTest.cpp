#include "EditorFixture.h"
#include "editor/render/AnnotationRenderer.h"

#include <QPlainTextEdit>
#include <cstdlib>

using namespace qm;
using namespace qm::test;

namespace {

class ViewTest : public EditorFixture {
protected:
    QRect visibleImage() const {
        const QWidget* viewport = view->scrollView()->viewport();
        const QRectF image = canvas()->toWidget(QRectF(QPointF(0, 0), QSizeF(model->pixelSize())));
        return QRect(canvas()->mapTo(view, image.topLeft().toPoint()), image.size().toSize())
            .intersected(QRect(viewport->mapTo(view, QPoint(0, 0)), viewport->size()));
    }
    QRect zoomBarRect() const {
        const QWidget* bar = view->scrollView()->zoomBar();
        return QRect(bar->mapTo(view, QPoint(0, 0)), bar->size());
    }
};

TEST_F(ViewTest, OpensAtFullSizeWhenTheImageFitsElseAtAWholeFraction) {
    open(QSize(900, 600), QSize(1400, 1000));
    EXPECT_EQ(model->zoom().currentZoomPercent(), 100);
    EXPECT_EQ(canvas()->scale(), 1.0);
}

TEST_F(ViewTest, AnImageJustTooBigOpensAtHalfNotAtAnInBetweenZoom) {
    // 96 % would fit; that blurs every pixel, 50 % does not.
    open(QSize(1380, 700), QSize(1400, 1000));
    EXPECT_EQ(model->zoom().currentZoomPercent(), 50);
    EXPECT_EQ(canvas()->scale(), 0.5);
    EXPECT_EQ(view->scrollView()->horizontalScrollBar()->maximum(), 0);
}

TEST_F(ViewTest, ALargeImageOpensAtAQuarterAndTheZoomBarLeavesItUncovered) {
    open(QSize(4000, 3000), QSize(1400, 1000));
    EXPECT_EQ(model->zoom().currentZoomPercent(), 25);
    EXPECT_FALSE(zoomBarRect().intersects(visibleImage()));
    // Zoomed in and scrolled to the bottom, the image still ends above the bar.
    zoom(100);
    view->scrollView()->verticalScrollBar()->setValue(
        view->scrollView()->verticalScrollBar()->maximum());
    QApplication::processEvents();
    EXPECT_FALSE(visibleImage().isEmpty());
    EXPECT_FALSE(zoomBarRect().intersects(visibleImage()));
}

TEST_F(ViewTest, TheBackdropShowsOnTheCanvasAsItIsExported) {
    open(QSize(600, 400), QSize(1200, 900));
    zoom(100);
    add(Annotation::Rectangle{QRectF(100, 100, 200, 150)});
    model->backdrop().setBackground(BackgroundStyle{QStringLiteral("indigo"), 48, 18, true});
    QApplication::processEvents();
    // The padding is part of what can be scrolled to, and the view fits it.
    EXPECT_EQ(canvas()->size(), QSize(696 + 56, 496 + 56));

    const QImage shown = canvas()->grab().toImage();
    const QImage exported = flatten(*model);
    ASSERT_EQ(exported.size(), QSize(696, 496));
    const auto same = [&](QPoint inExport) {
        const QPointF image = QPointF(inExport) - QPointF(48, 48);
        const QColor a = shown.pixel(canvas()->toWidget(image).toPoint());
        const QColor b = exported.pixel(inExport);
        return std::abs(a.red() - b.red()) <= 2 && std::abs(a.green() - b.green()) <= 2 &&
               std::abs(a.blue() - b.blue()) <= 2;
    };
    for (const QPoint p : {QPoint(5, 5), QPoint(690, 5), QPoint(348, 20), QPoint(348, 470),
                           QPoint(49, 49), QPoint(250, 250), QPoint(148, 220), QPoint(400, 300)})
        EXPECT_TRUE(same(p)) << p.x() << "," << p.y();
    // Not the view's own background: the gradient is really there.
    EXPECT_NE(QColor(shown.pixel(canvas()->toWidget(QPointF(-40, -40)).toPoint())),
              canvas()->palette().color(QPalette::Window));

    // Editing the crop shows the whole capture again, without the backdrop.
    model->setTool(AnnotationTool::Crop);
    QApplication::processEvents();
    EXPECT_EQ(canvas()->size(), QSize(600 + 56, 400 + 56));
}

TEST_F(ViewTest, TypedTextStaysOneLineUntilTheUserDragsAWidth) {
    open();
    zoom(100);
    model->setTool(AnnotationTool::Text);
    click(QPointF(100, 200));
    QPlainTextEdit* field = canvas()->textEditor();
    ASSERT_NE(field, nullptr);
    ASSERT_TRUE(waitUntil([&] { return field->hasFocus(); }));
    const QString sentence =
        QStringLiteral("This sentence goes on for rather more than a few words");
    QTest::keyClicks(field, sentence);
    const auto text = [&] {
        return *model->document().annotations().constFirst().as<Annotation::Text>();
    };
    const double fontSize = text().fontSize;
    EXPECT_GT(text().frame.width(), 20 * fontSize); // as long as the words
    EXPECT_LT(text().frame.height(), 2 * fontSize); // one line
    // The field shows the same single line, all of it.
    EXPECT_EQ(field->document()->lineCount(), 1);
    EXPECT_GE(field->width(), int(text().frame.width()));

    // A second line: the frame, and so the selection outline, covers both.
    QTest::keyClick(field, Qt::Key_Return);
    QTest::keyClicks(field, QStringLiteral("and a second"));
    QTest::keyClick(field, Qt::Key_Escape);
    EXPECT_EQ(text().frame, AnnotationRenderer::textRect(text()));
    EXPECT_GT(text().frame.height(), 2 * fontSize);
    const QRectF twoLines = text().frame;

    // Drag the right edge in: from now on it wraps at that width and grows downwards.
    QTest::keyClick(canvas(), Qt::Key_V);
    model->document().selectOnly(model->document().annotations().constFirst().id());
    drag(QPointF(twoLines.right(), twoLines.center().y()), QPointF(400, twoLines.center().y()));
    EXPECT_TRUE(text().wrapsAtWidth);
    EXPECT_NEAR(text().frame.right(), 400, 1);
    EXPECT_GT(text().frame.height(), twoLines.height() + fontSize);
    EXPECT_EQ(text().frame, AnnotationRenderer::textRect(text()));
    // The export wraps where the canvas does: nothing is drawn right of the dragged edge.
    const QImage out = flatten(*model);
    for (int y = int(text().frame.top()); y < int(text().frame.bottom()); ++y)
        for (int x = 420; x < 900; x += 2)
            ASSERT_EQ(QColor(out.pixel(x, y)), QColor(235, 238, 242)) << x << "," << y;
}

} // namespace
