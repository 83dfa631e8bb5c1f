#include "ocr/TextRecognizer.h"

#include "TestSupport.h"

#include <QFont>
#include <QGuiApplication>
#include <QImage>
#include <QObject>
#include <QPainter>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

// Lines of UI-sized text, as a screenshot would show them.
QImage textImage(const QStringList& lines, int pixelSize = 18, QSize size = QSize(900, 260)) {
    QImage image(size, QImage::Format_RGB32);
    image.fill(QColor(250, 250, 252));
    QPainter p(&image);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(pixelSize);
    p.setFont(font);
    p.setPen(QColor(30, 30, 35));
    int y = 40;
    for (const QString& line : lines) {
        p.drawText(QPoint(30, y), line);
        y += pixelSize * 2;
    }
    return image;
}

QString clipboardText() {
    const ProcessResult r =
        run(QStringLiteral("xclip"),
            {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o")});
    return QString::fromUtf8(r.out);
}

TEST(TextRecognizer, ReadsScreenTextLineByLine) {
    const QStringList lines{QStringLiteral("Deploy finished in 42 seconds"),
                            QStringLiteral("Open the settings window to continue"),
                            QStringLiteral("Quarterly report: revenue up 12%")};
    const auto text = TextRecognizer::text(textImage(lines));
    ASSERT_TRUE(text.ok()) << text.error().reason.toStdString();
    EXPECT_EQ(text->split(QLatin1Char('\n')), lines);
}

TEST(TextRecognizer, FindsNothingInAnEmptyImage) {
    QImage blank(400, 200, QImage::Format_RGB32);
    blank.fill(Qt::white);
    // No text is an answer, not a failure of the engine.
    EXPECT_EQ(TextRecognizer::text(blank), Result<QString>(QString()));
    EXPECT_EQ(TextRecognizer::text(QImage()), Result<QString>(QString()));
}

TEST(TextRecognizer, ParallelRecognitionsEachReadTheirOwnImage) {
    // Each worker keeps its own engine; two at once must not mix their images or results.
    const QString first = QStringLiteral("Invoice 2291 was paid on Monday");
    const QString second = QStringLiteral("Backup completed without warnings");
    for (int round = 0; round < 2; ++round) {
        auto a = TextRecognizer::textAsync(textImage({first}));
        auto b = TextRecognizer::textAsync(textImage({second}));
        const Result<QString> readA = a.result();
        const Result<QString> readB = b.result();
        ASSERT_TRUE(readA.ok() && readB.ok());
        EXPECT_EQ(*readA, first);
        EXPECT_EQ(*readB, second);
    }
}

TEST(TextRecognizer, CopiesWhatItReadsToTheClipboard) {
    QObject context;
    std::optional<bool> found;
    TextRecognizer::copyText(
        textImage({QStringLiteral("Ticket QM-1024 is ready for review")}), &context,
        [&](const Result<QString>& text) { found = text.ok() && !text->isEmpty(); });
    ASSERT_TRUE(waitUntil([&] { return found.has_value(); }, std::chrono::seconds(30)));
    EXPECT_TRUE(*found);
    EXPECT_EQ(clipboardText().trimmed(), QStringLiteral("Ticket QM-1024 is ready for review"));

    // Nothing read: the clipboard keeps what it had.
    QImage blank(300, 100, QImage::Format_RGB32);
    blank.fill(Qt::white);
    found.reset();
    TextRecognizer::copyText(blank, &context, [&](const Result<QString>& text) {
        found = text.ok() && !text->isEmpty();
    });
    ASSERT_TRUE(waitUntil([&] { return found.has_value(); }, std::chrono::seconds(30)));
    EXPECT_FALSE(*found);
    EXPECT_EQ(clipboardText().trimmed(), QStringLiteral("Ticket QM-1024 is ready for review"));
}

} // namespace
