#include "RunningProgram.h"
#include "TestSupport.h"

#include <QDateTime>
#include <QFile>
#include <QFont>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>
#include <QSettings>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

const QString kBinary = QStringLiteral(QUILLMARK_BINARY);

// A capture with a line of text in it, as a screenshot of a document would have.
QString saveTextCapture(const QString& name, const QString& text) {
    QDir().mkpath(kPictures);
    QImage image(720, 160, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(28);
    painter.setFont(font);
    painter.setPen(Qt::black);
    painter.drawText(QPoint(30, 90), text);
    painter.end();
    const QString path = QDir(kPictures).filePath(name);
    return image.save(path) ? path : QString();
}

void age(const QString& path, int days) {
    QFile file(path);
    file.open(QIODevice::ReadWrite);
    file.setFileTime(QDateTime::currentDateTime().addDays(-days),
                     QFileDevice::FileModificationTime);
}

// The ids of the windows whose title is exactly `title`.
QStringList windowsTitled(const QString& title) {
    const auto found =
        run(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--name"),
                                        QLatin1Char('^') + title + QLatin1Char('$')});
    return QString::fromLatin1(found.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QString indexFile() {
    return QDir::homePath() + QStringLiteral("/.local/share/Quillmark/ocr-index.json");
}

TEST(Library, OpensFromTheCommandReadsTheTextOfCapturesAndSweepsOldOnesToTheTrash) {
    const QString invoice = saveTextCapture(QStringLiteral("Quillmark 2026-11-20 at 10.00.00.png"),
                                            QStringLiteral("INVOICE 2044 paid in full"));
    const QString old = saveTextCapture(QStringLiteral("Quillmark 2026-09-01 at 09.00.00.png"),
                                        QStringLiteral("Quarterly figures"));
    const QString keep = saveTextCapture(QStringLiteral("holiday.png"), QStringLiteral("Beach"));
    ASSERT_FALSE(invoice.isEmpty());
    age(old, 45);
    age(keep, 400);
    {
        QSettings settings(QDir::homePath() + QStringLiteral("/.config/quillworks/Quillmark.conf"),
                           QSettings::IniFormat);
        settings.setValue(QStringLiteral("library.retentionDays"), 30);
    }

    // With nothing running, the command starts Quillmark with its library open.
    Program instance({QStringLiteral("library")});
    ASSERT_TRUE(instance.ready()) << instance.log().toStdString();
    ASSERT_TRUE(waitUntil([] { return windowsTitled(QStringLiteral("All Captures")).size() == 1; }))
        << instance.log().toStdString();
    // Asking again raises the same window.
    const auto again = run(kBinary, {QStringLiteral("library")});
    EXPECT_EQ(again.exitCode, 0) << again.err.constData();
    EXPECT_EQ(windowsTitled(QStringLiteral("All Captures")).size(), 1);

    // The expired capture goes to the Trash shortly after start; the user's own file stays.
    ASSERT_TRUE(waitUntil([&] { return !QFile::exists(old); }, std::chrono::seconds(20)));
    const auto trash = run(QStringLiteral("trash-list"), {});
    EXPECT_TRUE(QString::fromUtf8(trash.out).contains(old)) << trash.out.constData();
    EXPECT_TRUE(QFile::exists(keep));

    // The library handed its images to the index, which writes what it read.
    ASSERT_TRUE(waitUntil(
        [&] {
            QFile file(indexFile());
            if (!file.open(QIODevice::ReadOnly))
                return false;
            const QJsonObject records = QJsonDocument::fromJson(file.readAll()).object();
            return records.value(invoice)
                .toObject()
                .value(QStringLiteral("text"))
                .toString()
                .contains(QStringLiteral("INVOICE"));
        },
        std::chrono::seconds(60)))
        << instance.log().toStdString();
    const auto found = run(kBinary, {QStringLiteral("search"), QStringLiteral("invoice")});
    EXPECT_EQ(found.exitCode, 0) << found.err.constData();
    EXPECT_EQ(QString::fromLocal8Bit(found.out).trimmed(), invoice);
}

} // namespace
