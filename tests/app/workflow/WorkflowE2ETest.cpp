#include "RunningProgram.h"
#include "TestSupport.h"
#include "X11TestDesktop.h"
#include "base/ImageExport.h"
#include "platform/shortcuts/x11/X11GlobalShortcuts.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QSettings>
#include <QTest>
#include <gtest/gtest.h>

using namespace qm;
using namespace std::chrono_literals;
using test::captures;
using test::kPictures;
using test::Program;
using test::waitForCapture;

namespace {

void xdotool(const QStringList& args) {
    test::run(QStringLiteral("xdotool"), args);
}
void key(const QString& keys) {
    xdotool({QStringLiteral("key"), keys});
}

// The selection overlays on screen: our windows that cover the whole 1280×800 screen.
int overlaysShown() {
    const auto found = test::run(QStringLiteral("xdotool"),
                                 {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                  QStringLiteral("--classname"), QStringLiteral("quillmark")});
    int count = 0;
    for (const QString& id : QString::fromLatin1(found.out).split(u'\n', Qt::SkipEmptyParts)) {
        const auto geometry =
            test::run(QStringLiteral("xdotool"), {QStringLiteral("getwindowgeometry"), id});
        if (geometry.out.contains("Geometry: 1280x800"))
            ++count;
    }
    return count;
}

// Pixels of a capture against the desktop pattern, away from the tray in the top strip.
void expectPatternAt(const QImage& image, QPoint origin) {
    ASSERT_FALSE(image.isNull());
    int mismatches = 0;
    for (int y = 0; y < image.height(); y += 7)
        for (int x = 0; x < image.width(); x += 7)
            if (origin.y() + y >= 40 &&
                (image.pixel(x, y) & 0xffffff) !=
                    (test::patternColor(origin.x() + x, origin.y() + y) & 0xffffff))
                ++mismatches;
    EXPECT_EQ(mismatches, 0);
}

class CaptureWorkflow : public ::testing::Test {
protected:
    test::RootPattern pattern;
    void SetUp() override {
        ASSERT_TRUE(pattern.ok());
        QDir(kPictures).removeRecursively();
        // Every test starts from the default settings.
        QFile::remove(QDir::homePath() + QStringLiteral("/.config/quillworks/Quillmark.conf"));
    }
};

TEST_F(CaptureWorkflow, ShortcutsCaptureTheScreenAnAreaAndAWindow) {
    Program app;
    ASSERT_TRUE(app.ready());

    // Full screen: the file holds exactly what is on screen, and so does the clipboard.
    key(QStringLiteral("ctrl+shift+9"));
    const QString full = waitForCapture(1);
    ASSERT_FALSE(full.isEmpty()) << app.log().toStdString();
    const QImage screen(full);
    EXPECT_EQ(screen.size(), QSize(1280, 800));
    expectPatternAt(screen, {0, 0});
    // The clipboard is filled on the program's main thread, maybe just after the file.
    QImage pasted;
    ASSERT_TRUE(test::waitUntil([&] {
        const auto clip =
            test::run(QStringLiteral("xclip"),
                      {QStringLiteral("-selection"), QStringLiteral("clipboard"),
                       QStringLiteral("-t"), QStringLiteral("image/png"), QStringLiteral("-o")});
        pasted = QImage::fromData(clip.out, "PNG");
        return !pasted.isNull();
    }));
    EXPECT_EQ(pasted.convertToFormat(QImage::Format_RGB32),
              screen.convertToFormat(QImage::Format_RGB32));

    // An area dragged after the area shortcut; a second quick press opens no second overlay.
    // The capture flash covers the screen for a moment; wait until it is gone.
    ASSERT_TRUE(test::waitUntil([] { return overlaysShown() == 0; }));
    key(QStringLiteral("ctrl+shift+4"));
    key(QStringLiteral("ctrl+shift+4"));
    ASSERT_TRUE(test::waitUntil([] { return overlaysShown() >= 1; }));
    // A second overlay, at once or after the first, is caught here or before the next press.
    EXPECT_EQ(overlaysShown(), 1);
    xdotool({QStringLiteral("mousemove"), QStringLiteral("200"), QStringLiteral("150"),
             QStringLiteral("mousedown"), QStringLiteral("1"), QStringLiteral("mousemove"),
             QStringLiteral("300"), QStringLiteral("250"), QStringLiteral("mousemove"),
             QStringLiteral("500"), QStringLiteral("400"), QStringLiteral("mouseup"),
             QStringLiteral("1")});
    const QString area = waitForCapture(2);
    ASSERT_FALSE(area.isEmpty());
    const QImage region(area);
    EXPECT_EQ(region.size(), QSize(300, 250));
    expectPatternAt(region, {200, 150});

    // A click on a window takes that window, frame and all.
    test::ForeignWindow window(QStringLiteral("Probe"), QColor(200, 20, 30),
                               QStringLiteral("40x10+600+300"));
    ASSERT_TRUE(window.ok());
    window.activate();
    const QRect client = window.geometry();
    ASSERT_TRUE(test::waitUntil([] { return overlaysShown() == 0; }));
    key(QStringLiteral("ctrl+shift+4"));
    ASSERT_TRUE(test::waitUntil([] { return overlaysShown() == 1; }));
    xdotool({QStringLiteral("mousemove"), QString::number(client.center().x()),
             QString::number(client.center().y()), QStringLiteral("click"), QStringLiteral("1")});
    const QString picked = waitForCapture(3);
    ASSERT_FALSE(picked.isEmpty());
    const QImage windowImage(picked);
    EXPECT_GE(windowImage.width(), client.width());
    EXPECT_GE(windowImage.height(), client.height());
    EXPECT_LT(windowImage.width(), 1280);
    EXPECT_EQ(QColor(windowImage.pixel(windowImage.width() / 2, windowImage.height() - 10)),
              QColor(200, 20, 30));

    // Escape in the middle of a drag saves nothing.
    ASSERT_TRUE(test::waitUntil([] { return overlaysShown() == 0; }));
    key(QStringLiteral("ctrl+shift+4"));
    ASSERT_TRUE(test::waitUntil([] { return overlaysShown() == 1; }));
    xdotool({QStringLiteral("mousemove"), QStringLiteral("100"), QStringLiteral("100"),
             QStringLiteral("mousedown"), QStringLiteral("1"), QStringLiteral("mousemove"),
             QStringLiteral("400"), QStringLiteral("300")});
    key(QStringLiteral("Escape"));
    xdotool({QStringLiteral("mouseup"), QStringLiteral("1")});
    ASSERT_TRUE(test::waitUntil([] { return overlaysShown() == 0; }));
    // The cancelled drag saved nothing: the next capture, whose file the command waits for,
    // is the fourth.
    const auto next = test::run(QStringLiteral(QUILLMARK_BINARY),
                                {QStringLiteral("capture"), QStringLiteral("fullscreen")});
    ASSERT_EQ(next.exitCode, 0) << next.err.constData();
    EXPECT_EQ(captures().size(), 4);
}

TEST_F(CaptureWorkflow, CommandLineAndSessionBusReachTheOneInstance) {
    {
        // Not running yet: the command starts the program, which captures and stays.
        Program first({QStringLiteral("capture"), QStringLiteral("fullscreen")});
        ASSERT_FALSE(waitForCapture(1).isEmpty()) << first.log().toStdString();
        ASSERT_TRUE(first.ready());

        // Running: a second command hands over its capture and ends at once.
        const auto second = test::run(QStringLiteral(QUILLMARK_BINARY),
                                      {QStringLiteral("capture"), QStringLiteral("fullscreen")});
        EXPECT_EQ(second.exitCode, 0) << second.err.constData();
        ASSERT_FALSE(waitForCapture(2).isEmpty());

        // A plain second start does nothing.
        EXPECT_EQ(test::run(QStringLiteral(QUILLMARK_BINARY), {}).exitCode, 0);
        EXPECT_EQ(first.process().state(), QProcess::Running);

        const QStringList call{
            QStringLiteral("call"),          QStringLiteral("--session"),
            QStringLiteral("--dest"),        QStringLiteral("com.quillworks.Quillmark"),
            QStringLiteral("--object-path"), QStringLiteral("/com/quillworks/Quillmark"),
            QStringLiteral("--method"),      QStringLiteral("com.quillworks.Quillmark.Capture")};
        EXPECT_EQ(test::run(QStringLiteral("gdbus"),
                            call + QStringList{QStringLiteral("fullscreen"), QStringLiteral("0")})
                      .exitCode,
                  0);
        ASSERT_FALSE(waitForCapture(3).isEmpty());

        const auto bad =
            test::run(QStringLiteral("gdbus"),
                      call + QStringList{QStringLiteral("lasso"), QStringLiteral("0")});
        EXPECT_NE(bad.exitCode, 0);
        EXPECT_TRUE(bad.err.contains("choose region, window or fullscreen")) << bad.err.constData();
    }
    // Bad input is one sentence on stderr and a failing exit, with or without an instance.
    const auto wrong = test::run(QStringLiteral(QUILLMARK_BINARY),
                                 {QStringLiteral("capture"), QStringLiteral("region"),
                                  QStringLiteral("--delay"), QStringLiteral("soon")});
    EXPECT_EQ(wrong.exitCode, 2);
    EXPECT_EQ(wrong.err.count('\n'), 1);
    EXPECT_TRUE(wrong.err.contains("delay"));
}

QRect geometryOf(const QString& id) {
    const auto shell = test::run(QStringLiteral("xdotool"), {QStringLiteral("getwindowgeometry"),
                                                             QStringLiteral("--shell"), id});
    QRect r;
    for (const QString& line : QString::fromLatin1(shell.out).split(u'\n')) {
        const int v = line.section(u'=', 1).toInt();
        if (line.startsWith(QLatin1String("X=")))
            r.moveLeft(v);
        else if (line.startsWith(QLatin1String("Y=")))
            r.moveTop(v);
        else if (line.startsWith(QLatin1String("WIDTH=")))
            r.setWidth(v);
        else if (line.startsWith(QLatin1String("HEIGHT=")))
            r.setHeight(v);
    }
    return r;
}

// The capture cards on screen: our windows of a card's size.
std::vector<QRect> cardsShown() {
    const auto found = test::run(QStringLiteral("xdotool"),
                                 {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                  QStringLiteral("--classname"), QStringLiteral("quillmark")});
    std::vector<QRect> cards;
    for (const QString& id : QString::fromLatin1(found.out).split(u'\n', Qt::SkipEmptyParts))
        if (const QRect r = geometryOf(id); r.size() == QSize(256, 176))
            cards.push_back(r);
    return cards;
}

TEST_F(CaptureWorkflow, QuickCapturesNeverReplaceEachOtherAndTrashTakesOnlyItsOwnFile) {
    // Cards stay until closed.
    QSettings(QDir::homePath() + QStringLiteral("/.config/quillworks/Quillmark.conf"),
              QSettings::IniFormat)
        .setValue(QStringLiteral("afterCapture.overlayDismiss"), 0);
    Program app;
    ASSERT_TRUE(app.ready());

    // Files under the names the next seconds give: every capture must find another name.
    QDir().mkpath(kPictures);
    QStringList placeholders;
    const QDateTime now = QDateTime::currentDateTime();
    for (int second = 0; second < 5; ++second) {
        const QString path = QDir(kPictures).filePath(ImageExport::fileName(
            ImageExport::screenshotPrefix, QStringLiteral(".png"), now.addSecs(second)));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("not a capture");
        placeholders << path;
    }
    auto newCaptures = [&] {
        QStringList files = captures();
        for (const QString& p : placeholders)
            files.removeAll(p);
        return files;
    };

    // Shortcut, command line, shortcut: one right after the other.
    key(QStringLiteral("ctrl+shift+9"));
    ASSERT_TRUE(test::waitUntil([&] { return newCaptures().size() == 1; }))
        << app.log().toStdString();
    EXPECT_EQ(test::run(QStringLiteral(QUILLMARK_BINARY),
                        {QStringLiteral("capture"), QStringLiteral("fullscreen")})
                  .exitCode,
              0);
    ASSERT_TRUE(test::waitUntil([&] { return newCaptures().size() == 2; }));
    key(QStringLiteral("ctrl+shift+9"));
    ASSERT_TRUE(test::waitUntil([&] { return newCaptures().size() == 3; }));

    const QStringList shots = newCaptures();
    for (const QString& shot : shots) {
        const QImage image(shot);
        EXPECT_EQ(image.size(), QSize(1280, 800)) << shot.toStdString();
    }
    // A taken name gets a number.
    EXPECT_TRUE(std::any_of(shots.begin(), shots.end(), [](const QString& shot) {
        return shot.endsWith(QLatin1String(" 2.png"));
    })) << shots.join(u',').toStdString();
    for (const QString& placeholder : placeholders) {
        QFile file(placeholder);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_EQ(file.readAll(), QByteArray("not a capture"));
    }

    // Trashing the middle card takes its file alone.
    std::vector<QRect> cards;
    ASSERT_TRUE(test::waitUntil([&] { return (cards = cardsShown()).size() == 3; }));
    std::sort(cards.begin(), cards.end(), [](QRect a, QRect b) { return a.y() < b.y(); });
    const QPoint trashButton = cards[1].topLeft() + QPoint(192, 147);
    xdotool({QStringLiteral("mousemove"), QString::number(trashButton.x()),
             QString::number(trashButton.y()), QStringLiteral("click"), QStringLiteral("1")});
    ASSERT_TRUE(test::waitUntil([&] { return newCaptures().size() == 2; }));
    ASSERT_TRUE(test::waitUntil([&] { return cardsShown().size() == 2; }));
    const QString trashed = *std::find_if(shots.begin(), shots.end(),
                                          [](const QString& s) { return !QFile::exists(s); });
    const QString listed = QString::fromUtf8(test::run(QStringLiteral("trash-list"), {}).out);
    EXPECT_TRUE(listed.contains(trashed)) << listed.toStdString();
    EXPECT_EQ(listed.count(kPictures), 1) << listed.toStdString();
    for (const QString& shot : newCaptures())
        EXPECT_EQ(QImage(shot).size(), QSize(1280, 800));
}

// The visible window with this title: its id and geometry.
std::optional<std::pair<QString, QRect>> windowNamed(const QString& title) {
    const auto found = test::run(QStringLiteral("xdotool"),
                                 {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                  QStringLiteral("--name"), title});
    const QString id = QString::fromLatin1(found.out).section(u'\n', 0, 0).trimmed();
    if (id.isEmpty())
        return std::nullopt;
    const auto shell = test::run(QStringLiteral("xdotool"), {QStringLiteral("getwindowgeometry"),
                                                             QStringLiteral("--shell"), id});
    QRect r;
    for (const QString& line : QString::fromLatin1(shell.out).split(u'\n')) {
        const int v = line.section(u'=', 1).toInt();
        if (line.startsWith(QLatin1String("X=")))
            r.moveLeft(v);
        else if (line.startsWith(QLatin1String("Y=")))
            r.moveTop(v);
        else if (line.startsWith(QLatin1String("WIDTH=")))
            r.setWidth(v);
        else if (line.startsWith(QLatin1String("HEIGHT=")))
            r.setHeight(v);
    }
    return std::pair{id, r};
}

TEST_F(CaptureWorkflow, TheEditorOpensAfterACaptureAndItsArrowIsSaved) {
    QSettings(QDir::homePath() + QStringLiteral("/.config/quillworks/Quillmark.conf"),
              QSettings::IniFormat)
        .setValue(QStringLiteral("afterCapture.editor"), true);
    Program app;
    ASSERT_TRUE(app.ready());
    key(QStringLiteral("ctrl+shift+9"));
    std::optional<std::pair<QString, QRect>> editor;
    ASSERT_TRUE(test::waitUntil([&] {
        return (editor = windowNamed(QStringLiteral("Quillmark Editor"))).has_value();
    })) << app.log().toStdString();
    EXPECT_TRUE(captures().isEmpty()) << "nothing is saved while the editor is open";

    // Draw an arrow across the middle of the canvas with the real pointer, then Done, once the
    // editor is the active window.
    ASSERT_TRUE(test::waitUntil([&] {
        return QString::fromLatin1(
                   test::run(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")})
                       .out.trimmed()) == editor->first;
    }));
    const QRect r = editor->second;
    const int y = r.center().y();
    xdotool({QStringLiteral("mousemove"), QString::number(r.left() + r.width() * 3 / 10),
             QString::number(y), QStringLiteral("mousedown"), QStringLiteral("1"),
             QStringLiteral("mousemove"), QString::number(r.center().x()), QString::number(y),
             QStringLiteral("mousemove"), QString::number(r.left() + r.width() * 7 / 10),
             QString::number(y), QStringLiteral("mouseup"), QStringLiteral("1")});
    xdotool({QStringLiteral("key"), QStringLiteral("--window"), editor->first,
             QStringLiteral("ctrl+Return")});
    const QString saved = waitForCapture(1);
    ASSERT_FALSE(saved.isEmpty()) << app.log().toStdString();

    // The arrow's red is in the file, far more often than the desktop pattern has it.
    const QImage image(saved);
    EXPECT_EQ(image.size(), QSize(1280, 800));
    int red = 0;
    for (int py = 0; py < image.height(); ++py)
        for (int px = 0; px < image.width(); ++px) {
            const QColor c = image.pixelColor(px, py);
            if (c.red() > 240 && std::abs(c.green() - 59) < 8 && std::abs(c.blue() - 48) < 8)
                ++red;
        }
    EXPECT_GT(red, 500);
}

TEST_F(CaptureWorkflow, AShortcutHeldElsewhereIsLoggedAndTheOthersStillWork) {
    // Another client owns Ctrl+Shift+4 before Quillmark starts.
    auto other = X11GlobalShortcuts::connect();
    ASSERT_TRUE(other);
    ASSERT_EQ(other->grab(1, '4', Qt::ControlModifier | Qt::ShiftModifier), 0);

    Program app;
    ASSERT_TRUE(app.logged(QStringLiteral("Quillmark: failed to register hotkey id=1 status=10")));
    key(QStringLiteral("ctrl+shift+9"));
    ASSERT_FALSE(waitForCapture(1).isEmpty());
}

} // namespace
