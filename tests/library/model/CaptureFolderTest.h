#pragma once

#include "base/Preferences.h"
#include "base/SettingsStore.h"

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

// A save folder of its own, and settings that point at it.
class CaptureFolderTest : public ::testing::Test {
protected:
    QTemporaryDir home;
    QString folder = home.filePath(QStringLiteral("captures"));
    qm::IniSettingsStore store{home.filePath(QStringLiteral("Quillmark.conf"))};
    qm::Preferences preferences{store};

    void SetUp() override {
        ASSERT_TRUE(QDir().mkpath(folder));
        ASSERT_TRUE(preferences.setOutputDirectory(folder).ok());
    }
};
