#include "ocr/TextRecognizer.h"

#include <QImage>
#include <QTemporaryDir>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qm;

namespace {

// A process of its own: the engines must not have started before the data goes missing.
TEST(TextRecognizerEngine, MissingLanguageDataIsAnErrorWithItsReasonUntilItIsBack) {
    QImage blank(400, 200, QImage::Format_RGB32);
    blank.fill(Qt::white);
    const QByteArray installed = qgetenv("TESSDATA_PREFIX");
    QTemporaryDir empty;
    ASSERT_TRUE(empty.isValid());
    qputenv("TESSDATA_PREFIX", empty.path().toLocal8Bit());

    // Not "no text": the engine could not start, and the reason says why and where.
    const Result<QString> here = TextRecognizer::text(blank);
    ASSERT_FALSE(here.ok());
    EXPECT_THAT(here.error().reason.toStdString(),
                testing::AllOf(testing::HasSubstr("English language data could not be loaded"),
                               testing::HasSubstr(empty.path().toStdString())));
    const Result<QString> onAWorker = TextRecognizer::textAsync(blank).result();
    ASSERT_FALSE(onAWorker.ok());
    EXPECT_EQ(onAWorker.error(), here.error());

    // The failed start is not kept: with the data back, the same thread reads again.
    if (installed.isEmpty())
        qunsetenv("TESSDATA_PREFIX");
    else
        qputenv("TESSDATA_PREFIX", installed);
    EXPECT_EQ(TextRecognizer::text(blank), Result<QString>(QString()));
}

} // namespace
