#include "../index/IndexTestFiles.h"
#include "CaptureFolderTest.h"
#include "TestSupport.h"
#include "base/Preferences.h"
#include "base/SettingsStore.h"
#include "library/index/OcrTextIndex.h"
#include "library/model/LibraryModel.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QMutex>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace qm::library;
using qm::test::waitUntil;

namespace {

class TextSearchTest : public CaptureFolderTest {
protected:
    void SetUp() override {
        CaptureFolderTest::SetUp();
        preferences.setSearchImageText(true);
    }
    OcrTextIndex::Options options(OcrTextIndex::Recognize recognize = {}) {
        OcrTextIndex::Options o;
        o.file = home.filePath(u"ocr-index.json"_s);
        o.workers = 1;
        o.recognize = std::move(recognize);
        o.saveDelay = 10ms;
        return o;
    }
    // A blank PNG whose "recognised" text is its width in a fake recognizer.
    QString blank(const QString& name, int width, int age) {
        const QString path = QDir(folder).filePath(name);
        QImage image(width, 20, QImage::Format_RGB32);
        image.fill(Qt::white);
        EXPECT_TRUE(image.save(path, "PNG"));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadWrite));
        EXPECT_TRUE(file.setFileTime(QDateTime::currentDateTime().addSecs(-age),
                                     QFileDevice::FileModificationTime));
        return path;
    }
    static QStringList names(const std::vector<CaptureEntry>& entries) {
        QStringList out;
        for (const CaptureEntry& entry : entries)
            out << QFileInfo(entry.path).fileName();
        return out;
    }
};

// Text read from images by a stand-in reader: the model searches it only for images, only
// while text search is on, and follows the index as it reads more.
TEST_F(TextSearchTest, ImagesAreFoundByTheirTextWhileTextSearchIsOn) {
    const auto byWidth = [](const QImage& image) -> qm::Result<QString> {
        if (image.width() == 41)
            return u"TOTAL DUE\nINVOICE Nº 7"_s;
        if (image.width() == 42)
            return u"Straße und Café"_s;
        return QString();
    };
    blank(u"Scan 3.png"_s, 41, 50);
    blank(u"Menu.png"_s, 42, 40);
    blank(u"Invoices.png"_s, 43, 30); // found by its name
    blank(u"Clip.mov"_s, 41, 10);     // a movie, even if its text were known
    OcrTextIndex index(options(byWidth));
    LibraryModel model(preferences, &index);

    // Searching before anything is read: the matches appear as the index reads them.
    model.setSearchText(u"invoice"_s);
    model.reload(false);
    ASSERT_TRUE(waitUntil([&] { return model.filtered().size() == 2; }, 20s))
        << names(model.filtered()).join(u", "_s).toStdString();
    EXPECT_EQ(names(model.filtered()), (QStringList{u"Invoices.png"_s, u"Scan 3.png"_s}));
    EXPECT_EQ(model.selection(), model.filtered()[0].path);

    model.setSelection(model.filtered()[1].path);
    model.setSearchText(u"STRASSE UND CAFE"_s);
    EXPECT_EQ(names(model.filtered()), QStringList{u"Menu.png"_s});
    EXPECT_EQ(names({*model.selectedEntry()}), QStringList{u"Menu.png"_s});

    index.index({folder + u"/Clip.mov"_s});
    ASSERT_TRUE(waitUntil([&] { return index.record(folder + u"/Clip.mov"_s).has_value(); }));
    model.setSearchText(u"invoice"_s);
    model.setFilter(MediaKind::Videos);
    EXPECT_TRUE(model.filtered().empty());
    model.setSearchText(u"clip"_s);
    EXPECT_EQ(names(model.filtered()), QStringList{u"Clip.mov"_s});

    model.setFilter(MediaKind::Images);
    model.setSearchText(u"invoice"_s);
    preferences.setSearchImageText(false);
    EXPECT_EQ(names(model.filtered()), QStringList{u"Invoices.png"_s});
    preferences.setSearchImageText(true);
    EXPECT_EQ(names(model.filtered()), (QStringList{u"Invoices.png"_s, u"Scan 3.png"_s}));
}

// A changed image is searched by what it shows now.
TEST_F(TextSearchTest, AReReadImageIsSearchedByItsNewText) {
    QString text = u"first draft"_s;
    QMutex mutex;
    const auto reader = [&](const QImage&) -> qm::Result<QString> {
        const QMutexLocker lock(&mutex);
        return text;
    };
    const QString path = blank(u"Notes.png"_s, 40, 100);
    OcrTextIndex index(options(reader));
    LibraryModel model(preferences, &index);
    model.setSearchText(u"draft"_s);
    model.reload(false);
    ASSERT_TRUE(waitUntil([&] { return model.filtered().size() == 1; }));

    {
        const QMutexLocker lock(&mutex);
        text = u"final version"_s;
    }
    blank(u"Notes.png"_s, 40, 10);
    model.reload(true);
    ASSERT_TRUE(waitUntil([&] { return model.filtered().empty(); }));
    model.setSearchText(u"final"_s);
    EXPECT_EQ(model.filtered().size(), 1u);
    EXPECT_EQ(model.selection(), path);
}

// The real engine on rendered text: "invoice" finds the scan that shows INVOICE.
TEST_F(TextSearchTest, FindsAnImageByTheTextTesseractReads) {
    ASSERT_TRUE(qm::test::writeTextImage(folder + u"/Scan 3.png"_s,
                                         {u"INVOICE 2291"_s, u"Total due: 148.20 EUR"_s}));
    ASSERT_TRUE(qm::test::writeTextImage(folder + u"/Backup.png"_s,
                                         {u"Backup completed without warnings"_s}));
    OcrTextIndex index(options());
    LibraryModel model(preferences, &index);
    model.setSearchText(u"invoice"_s);
    model.reload(false);
    ASSERT_TRUE(waitUntil([&] { return !model.filtered().empty(); }, 60s));
    EXPECT_EQ(names(model.filtered()), QStringList{u"Scan 3.png"_s});
    model.setSearchText(u"WITHOUT WARN"_s);
    EXPECT_EQ(names(model.filtered()), QStringList{u"Backup.png"_s});
}

} // namespace
