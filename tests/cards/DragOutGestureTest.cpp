#include "cards/DragOutGesture.h"

#include "TestSupport.h"
#include "base/ImageExport.h"

#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

QImage filled(QColor colour, QSize size = {64, 48}) {
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

class DragOutGestureTest : public ::testing::Test {
protected:
    void SetUp() override {
        gesture.onStartDrag = [this](const QString& file) { dragged.append(file); };
    }

    // The card's state as the gesture sees it: a saved file or not, and the full image.
    void configure(std::optional<QString> saved, QImage full) {
        savedFile = std::move(saved);
        fullImage = std::move(full);
        gesture.configure(
            displayImage, [this] { ++clicks; }, [this] { return savedFile; },
            [this] { return fullImage; });
    }

    QTemporaryDir dir;
    DragOutGesture gesture;
    QImage displayImage = filled(Qt::gray);
    std::optional<QString> savedFile;
    QImage fullImage;
    int clicks = 0;
    QStringList dragged;
};

TEST_F(DragOutGestureTest, SmallWiggleIsAClickAndTheSavedCaptureIsDraggedItself) {
    const QString saved = dir.filePath(QStringLiteral("Quillmark 2026-11-22 at 10.00.00.png"));
    ASSERT_TRUE(filled(Qt::red).save(saved));
    configure(saved, filled(Qt::red));

    // Up to 3 points away from the press is still a click: diagonal 2.83, then exactly 3.
    gesture.press({50, 40});
    gesture.move({52, 42});
    gesture.move({53, 40});
    gesture.move({50, 37});
    gesture.release();
    EXPECT_EQ(clicks, 1);
    EXPECT_TRUE(dragged.isEmpty());

    // Just past 3 points the drag starts at once with the saved file, not a copy of it.
    gesture.press({50, 40});
    gesture.move({53.2, 40});
    ASSERT_EQ(dragged, QStringList{saved});
    EXPECT_EQ(gesture.encodeGeneration(), 0);
    // Further movement and the release belong to the running drag.
    gesture.move({90, 40});
    gesture.dragEnded();
    gesture.release();
    EXPECT_EQ(dragged.size(), 1);
    EXPECT_EQ(clicks, 1);
}

TEST_F(DragOutGestureTest, DragFasterThanTheEncodingStartsWhenTheFileIsWritten) {
    // Not saved yet: the press writes a temporary PNG of the full image in the background.
    const QImage full = makeScreenshotLikeImage(2400, 1500);
    configure(std::nullopt, full);
    QSignalSpy finished(&gesture, &DragOutGesture::encodingFinished);

    gesture.press({20, 20});
    gesture.move({40, 30});
    EXPECT_TRUE(gesture.wantsDrag());
    EXPECT_TRUE(dragged.isEmpty()) << "no file yet";

    // No second movement: the written file alone starts the drag.
    ASSERT_TRUE(waitUntil([&] { return !dragged.isEmpty(); }));
    ASSERT_EQ(dragged.size(), 1);
    ASSERT_EQ(finished.size(), 1);
    const QString file = dragged.first();
    EXPECT_TRUE(file.startsWith(QDir::tempPath()));
    EXPECT_TRUE(QFileInfo(file).fileName().startsWith(QStringLiteral("Quillmark ")));
    QImageReader reader(file);
    EXPECT_EQ(reader.format(), "png");
    EXPECT_EQ(reader.read().convertToFormat(full.format()), full);
    QFile::remove(file);
    EXPECT_EQ(clicks, 0);
}

TEST_F(DragOutGestureTest, OnlyTheNewestPressesEncodingIsDragged) {
    // Distinct names per image, so the two encodings cannot meet in one file.
    gesture.setTempWriter([](const QImage& image) -> std::optional<QString> {
        const bool first = image.pixelColor(0, 0) == QColor(Qt::red);
        const Result<QString> path = ImageExport::writeTempPNG(
            image, first ? QStringLiteral("First") : QStringLiteral("Second"));
        return path ? std::optional<QString>(*path) : std::nullopt;
    });
    configure(std::nullopt, filled(Qt::red, {1600, 1000}));
    QSignalSpy finished(&gesture, &DragOutGesture::encodingFinished);

    // A click, and a new press before the first encoding is back (the image was edited).
    gesture.press({20, 20});
    gesture.release();
    EXPECT_EQ(clicks, 1);
    fullImage = filled(Qt::blue, {1600, 1000});
    gesture.press({20, 20});
    EXPECT_EQ(gesture.encodeGeneration(), 2);
    gesture.move({60, 20});

    ASSERT_TRUE(waitUntil([&] { return finished.size() == 2; }));
    ASSERT_EQ(dragged.size(), 1);
    EXPECT_TRUE(QFileInfo(dragged.first()).fileName().startsWith(QStringLiteral("Second ")));
    EXPECT_EQ(QImage(dragged.first()).pixelColor(0, 0), QColor(Qt::blue));
    EXPECT_EQ(gesture.pendingURL(), dragged.first());
    EXPECT_EQ(clicks, 1);
    for (const QString& name :
         QDir(QDir::tempPath()).entryList({QStringLiteral("First *"), QStringLiteral("Second *")}))
        QFile::remove(QDir(QDir::tempPath()).filePath(name));
}

} // namespace
