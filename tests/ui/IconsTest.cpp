#include "ui/Icons.h"

#include <QApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QPalette>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace qm;

namespace {

int coveredPixels(const QImage& image) {
    int covered = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            covered += qAlpha(image.pixel(x, y)) > 0;
    return covered;
}

bool onlyColour(const QImage& image, QColor colour) {
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (c.alpha() > 40 &&
                (std::abs(c.red() - colour.red()) > 3 || std::abs(c.green() - colour.green()) > 3 ||
                 std::abs(c.blue() - colour.blue()) > 3))
                return false;
        }
    return true;
}

TEST(IconsTest, EveryBundledIconDrawsInTheTintAtTheScreensScale) {
    int icons = 0;
    for (QDirIterator it(QStringLiteral(":/quillmark/fallback-icons")); it.hasNext();) {
        const QString name = QFileInfo(it.next()).completeBaseName();
        ++icons;
        EXPECT_TRUE(hasBundledIcon(name)) << name.toStdString();
        const QImage image = renderIcon(name, Qt::red, QSizeF(16, 16), 2.0);
        ASSERT_EQ(image.size(), QSize(32, 32)) << name.toStdString();
        EXPECT_EQ(image.devicePixelRatio(), 2.0);
        // Line art: something drawn, far from a filled square, and only in the tint.
        const int covered = coveredPixels(image);
        EXPECT_GT(covered, 20) << name.toStdString();
        EXPECT_LT(covered, 32 * 32 * 3 / 4) << name.toStdString();
        EXPECT_TRUE(onlyColour(image, Qt::red)) << name.toStdString();
    }
    EXPECT_GE(icons, 40);

    EXPECT_FALSE(hasIcon(QStringLiteral("no-such-icon")));
    EXPECT_TRUE(renderIcon(QStringLiteral("no-such-icon"), Qt::red, {16, 16}, 1).isNull());
    EXPECT_TRUE(tintedIcon(QStringLiteral("no-such-icon"), Qt::red).isNull());
}

// A tiny icon theme on disk: a full-colour "edit-copy" and a symbolic "document-save".
class ThemeIconsTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QStringList savedPaths = QIcon::themeSearchPaths();
    QString savedTheme = QIcon::themeName();

    void SetUp() override {
        QDir(dir.path()).mkpath(QStringLiteral("qmtest/scalable"));
        write(QStringLiteral("qmtest/index.theme"),
              "[Icon Theme]\nName=qmtest\nDirectories=scalable\n\n"
              "[scalable]\nSize=16\nMinSize=8\nMaxSize=512\nType=Scalable\n");
        const QByteArray square = R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 16 16" )"
                                  R"(width="16" height="16"><rect width="16" height="16" )"
                                  R"(fill="#00ff00"/></svg>)";
        write(QStringLiteral("qmtest/scalable/edit-copy.svg"), square);
        write(QStringLiteral("qmtest/scalable/document-save-symbolic.svg"), square);
        QIcon::setThemeSearchPaths({dir.path()});
        QIcon::setThemeName(QStringLiteral("qmtest"));
    }
    void TearDown() override {
        QIcon::setThemeSearchPaths(savedPaths);
        QIcon::setThemeName(savedTheme);
    }
    void write(const QString& name, const QByteArray& bytes) {
        QFile f(dir.filePath(name));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }
};

TEST_F(ThemeIconsTest, TheDesktopThemeComesFirstAndTheBundleFillsTheGaps) {
    const QImage fromTheme = themedIcon(QStringLiteral("edit-copy")).pixmap(16, 16).toImage();
    EXPECT_EQ(fromTheme.pixelColor(8, 8), QColor(0, 255, 0));

    // Not in the theme: the bundled drawing, in the palette's text colour.
    const QIcon bundled = themedIcon(QStringLiteral("draw-arrow"));
    ASSERT_FALSE(bundled.isNull());
    const QImage drawn = bundled.pixmap(24, 24).toImage();
    EXPECT_GT(coveredPixels(drawn), 20);
    EXPECT_TRUE(onlyColour(drawn, QApplication::palette().color(QPalette::WindowText)));

    // Tinted drawing takes the theme's symbolic variant (here a filled square) over the bundle.
    const QImage save = renderIcon(QStringLiteral("document-save"), Qt::white, {16, 16}, 1);
    EXPECT_EQ(coveredPixels(save), 16 * 16);
    EXPECT_TRUE(onlyColour(save, Qt::white));
    // A full-colour theme icon is never flattened into a silhouette.
    const QImage copy = renderIcon(QStringLiteral("edit-copy"), Qt::white, {16, 16}, 1);
    EXPECT_LT(coveredPixels(copy), 16 * 16 * 3 / 4);
}

} // namespace
