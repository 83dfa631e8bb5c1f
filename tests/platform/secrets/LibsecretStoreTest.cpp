// The API key in a real keyring, as the settings and the client keep it and as other programs
// (secret-tool) see it.
#include "platform/secrets/libsecret/LibsecretStore.h"

#include "TestKeyring.h"

#include <gtest/gtest.h>

using namespace qm;
using namespace qm::platform;
using namespace qm::test;

namespace {

class LibsecretStoreTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { s_keyring = new TestKeyring; }
    static void TearDownTestSuite() { delete s_keyring; }
    void SetUp() override {
        ASSERT_TRUE(s_keyring->ready());
        auto opened = LibsecretStore::open();
        ASSERT_TRUE(opened.ok()) << opened.error().reason.toStdString();
        store = std::move(*opened);
        EXPECT_TRUE(store->unavailableReason().isEmpty());
    }
    std::optional<QString> loaded(const QString& account) {
        auto value = store->load(account);
        EXPECT_TRUE(value.ok()) << value.error().reason.toStdString();
        return value.valueOr(std::nullopt);
    }

    static inline TestKeyring* s_keyring = nullptr;
    std::unique_ptr<LibsecretStore> store;
};

TEST_F(LibsecretStoreTest, SavingTwiceKeepsOneItemAndRemovingTwiceSucceeds) {
    EXPECT_EQ(loaded(kAnthropicKeyAccount), std::nullopt);
    ASSERT_TRUE(store->save(kAnthropicKeyAccount, QStringLiteral("sk-ant-first")).ok());
    ASSERT_TRUE(store->save(kAnthropicKeyAccount, QStringLiteral("sk-ant-second")).ok());
    EXPECT_EQ(TestKeyring::lookup(kAnthropicKeyAccount), "sk-ant-second");
    EXPECT_EQ(TestKeyring::count(kAnthropicKeyAccount), 1);
    EXPECT_EQ(loaded(kAnthropicKeyAccount), QStringLiteral("sk-ant-second"));

    // Another account is a separate item, untouched by removing the first.
    ASSERT_TRUE(store->save(QStringLiteral("other"), QStringLiteral("kept")).ok());
    EXPECT_TRUE(store->remove(kAnthropicKeyAccount).ok());
    EXPECT_EQ(loaded(kAnthropicKeyAccount), std::nullopt);
    EXPECT_EQ(TestKeyring::lookup(kAnthropicKeyAccount), "");
    EXPECT_TRUE(store->remove(kAnthropicKeyAccount).ok());
    EXPECT_EQ(loaded(QStringLiteral("other")), QStringLiteral("kept"));
    EXPECT_TRUE(store->remove(QStringLiteral("other")).ok());
}

TEST_F(LibsecretStoreTest, APastedKeyIsKeptWithoutSpacesOrNewlines) {
    ASSERT_TRUE(store->save(kAnthropicKeyAccount, QStringLiteral("  sk-ant-pasted\r\n")).ok());
    EXPECT_EQ(TestKeyring::lookup(kAnthropicKeyAccount), "sk-ant-pasted");
    EXPECT_EQ(loaded(kAnthropicKeyAccount), QStringLiteral("sk-ant-pasted"));
    EXPECT_TRUE(store->remove(kAnthropicKeyAccount).ok());
}

TEST_F(LibsecretStoreTest, AKeyStoredByAnotherProgramIsFoundAndReplaced) {
    ASSERT_TRUE(TestKeyring::store(kAnthropicKeyAccount, "sk-ant-by-hand-é"));
    EXPECT_EQ(loaded(kAnthropicKeyAccount), QStringLiteral("sk-ant-by-hand-é"));
    ASSERT_TRUE(store->save(kAnthropicKeyAccount, QStringLiteral("sk-ant-mine")).ok());
    EXPECT_EQ(TestKeyring::lookup(kAnthropicKeyAccount), "sk-ant-mine");
    EXPECT_TRUE(store->remove(kAnthropicKeyAccount).ok());
    EXPECT_EQ(TestKeyring::count(kAnthropicKeyAccount), 0);
}

} // namespace
