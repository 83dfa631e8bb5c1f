#include "app/CommandLine.h"

#include <gtest/gtest.h>

using namespace qm;

namespace {

Command parse(std::initializer_list<const char*> args) {
    QStringList list;
    for (const char* a : args)
        list << QString::fromLatin1(a);
    const Result<Command> parsed = parseCommandLine(list);
    EXPECT_TRUE(parsed) << (parsed ? "" : parsed.error().reason.toStdString());
    return parsed ? *parsed : Command{};
}

TEST(CommandLine, AcceptsTheCaptureVerbs) {
    EXPECT_TRUE(std::holds_alternative<command::Start>(parse({})));
    const auto region = std::get<command::Capture>(parse({"capture", "region"}));
    EXPECT_EQ(region.kind, CaptureKind::Region);
    EXPECT_EQ(region.delaySeconds, 0);
    const auto delayed =
        std::get<command::Capture>(parse({"capture", "fullscreen", "--delay", "3"}));
    EXPECT_EQ(delayed.kind, CaptureKind::Fullscreen);
    EXPECT_EQ(delayed.delaySeconds, 3);
    EXPECT_EQ(std::get<command::Capture>(parse({"capture", "region", "--delay=10"})).delaySeconds,
              10);
    EXPECT_EQ(std::get<command::Record>(parse({"record", "area"})).action, RecordAction::Area);
    EXPECT_EQ(std::get<command::Record>(parse({"record", "screen"})).action, RecordAction::Screen);
    EXPECT_EQ(std::get<command::Record>(parse({"record", "stop"})).action, RecordAction::Stop);
}

TEST(CommandLine, BadInputIsOneSentence) {
    for (const auto& args : {std::vector<const char*>{"snap"},
                             {"capture"},
                             {"capture", "lasso"},
                             {"capture", "region", "--delay"},
                             {"capture", "region", "--delay", "x"},
                             {"capture", "region", "--delay", "-1"},
                             {"capture", "window", "--delay", "3"},
                             {"capture", "region", "--loud"},
                             {"record"},
                             {"record", "window"},
                             {"record", "area", "--delay", "3"}}) {
        QStringList list;
        for (const char* a : args)
            list << QString::fromLatin1(a);
        const auto result = parseCommandLine(list);
        ASSERT_FALSE(result) << list.join(u' ').toStdString();
        const QString message = result.error().reason;
        EXPECT_TRUE(message.endsWith(QLatin1Char('.'))) << message.toStdString();
        EXPECT_FALSE(message.contains(QLatin1Char('\n')));
    }
}

} // namespace
