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

TEST(TextRecognizer, KeepsTheColumnsOfAWholeScreenApart) {
    // A full screen: a page of prose beside a code pane. Reading it as one block would run
    // each line of prose into the line of code beside it.
    QImage screen(1920, 1080, QImage::Format_RGB32);
    screen.fill(QColor(250, 250, 252));
    QPainter p(&screen);
    p.fillRect(1020, 0, 900, 1080, QColor(238, 240, 244));
    const QStringList prose{
        QStringLiteral("The quarterly report shows revenue up 12% over the same period,"),
        QStringLiteral("driven mostly by renewals in the education sector. Support tickets"),
        QStringLiteral("fell after the new onboarding guide went live on March 3rd; the"),
        QStringLiteral("median first reply now takes 41 minutes. Please review the invoice")};
    const QStringList code{QStringLiteral("const auto parsed = parseCommandLine(arguments);"),
                           QStringLiteral("if (parsed.ok())"),
                           QStringLiteral("    return runFileCommand(*parsed);"),
                           QStringLiteral("return 2;")};
    QFont sans(QStringLiteral("DejaVu Sans"));
    sans.setPixelSize(15);
    QFont mono(QStringLiteral("DejaVu Sans Mono"));
    mono.setPixelSize(14);
    p.setPen(QColor(30, 30, 35));
    for (int i = 0; i < 4; ++i) {
        p.setFont(sans);
        p.drawText(QPoint(40, 60 + i * 26), prose[i]);
        p.setFont(mono);
        p.drawText(QPoint(1050, 60 + i * 26), code[i]);
    }
    p.end();
    const auto text = TextRecognizer::text(screen);
    ASSERT_TRUE(text.ok());
    const QStringList lines = text->split(QLatin1Char('\n'));
    for (const QString& line : prose)
        EXPECT_TRUE(lines.contains(line)) << line.toStdString() << " in " << text->toStdString();
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
