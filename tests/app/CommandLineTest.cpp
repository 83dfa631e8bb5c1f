#include "app/CommandLine.h"

#include <gtest/gtest.h>

using namespace qm;

namespace {

std::variant<Command, CommandLineError> parse(std::initializer_list<const char*> args) {
    QStringList list;
    for (const char* a : args)
        list << QString::fromLatin1(a);
    return parseCommandLine(list);
}

TEST(CommandLine, AcceptsTheCaptureVerbs) {
    EXPECT_TRUE(std::holds_alternative<command::Start>(std::get<Command>(parse({}))));
    const auto region = std::get<command::Capture>(std::get<Command>(parse({"capture", "region"})));
    EXPECT_EQ(region.kind, CaptureKind::Region);
    EXPECT_EQ(region.delaySeconds, 0);
    const auto delayed = std::get<command::Capture>(
        std::get<Command>(parse({"capture", "fullscreen", "--delay", "3"})));
    EXPECT_EQ(delayed.kind, CaptureKind::Fullscreen);
    EXPECT_EQ(delayed.delaySeconds, 3);
    EXPECT_EQ(
        std::get<command::Capture>(std::get<Command>(parse({"capture", "region", "--delay=10"})))
            .delaySeconds,
        10);
}

TEST(CommandLine, BadInputIsOneSentence) {
    for (const auto& args : {std::vector<const char*>{"snap"},
                             {"capture"},
                             {"capture", "lasso"},
                             {"capture", "region", "--delay"},
                             {"capture", "region", "--delay", "x"},
                             {"capture", "region", "--delay", "-1"},
                             {"capture", "window", "--delay", "3"},
                             {"capture", "region", "--loud"}}) {
        QStringList list;
        for (const char* a : args)
            list << QString::fromLatin1(a);
        const auto result = parseCommandLine(list);
        ASSERT_TRUE(std::holds_alternative<CommandLineError>(result))
            << list.join(u' ').toStdString();
        const QString message = std::get<CommandLineError>(result).message;
        EXPECT_TRUE(message.endsWith(QLatin1Char('.'))) << message.toStdString();
        EXPECT_FALSE(message.contains(QLatin1Char('\n')));
    }
}

} // namespace
