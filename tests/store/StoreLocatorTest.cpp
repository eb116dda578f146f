#include "store/StoreLocator.h"

#include <gtest/gtest.h>

#include <map>

#include "store/StoreLocatorError.h"
#include "support/TempDirectory.h"
#include "support/Thrown.h"

namespace vosklin {
namespace {

using test::TempDirectory;

Environment environment(std::map<std::string, std::string> values) {
    return [values](const std::string& name) -> std::optional<std::string> {
        auto found = values.find(name);
        if (found == values.end()) return std::nullopt;
        return found->second;
    };
}

TEST(StoreLocatorTest, ContainerComesFromHomeOptionThenEnvironmentThenXdgThenHome) {
    auto all = environment({{"VOSKLIN_HOME", "/v"}, {"XDG_DATA_HOME", "/xdg"}, {"HOME", "/home/ana"}});
    EXPECT_EQ(StoreLocator::fromEnvironment(std::string("/opt/h/"), all).containerRoot(), "/opt/h");
    EXPECT_EQ(StoreLocator::fromEnvironment(std::nullopt, all).containerRoot(), "/v");
    EXPECT_EQ(StoreLocator::fromEnvironment(std::nullopt, environment({{"XDG_DATA_HOME", "/xdg"}, {"HOME", "/h"}}))
                  .containerRoot(),
              "/xdg/vosklin");
    // A relative XDG_DATA_HOME is invalid and ignored, as the base-directory rules say.
    EXPECT_EQ(StoreLocator::fromEnvironment(std::nullopt, environment({{"XDG_DATA_HOME", "rel"}, {"HOME", "/h"}}))
                  .containerRoot(),
              "/h/.local/share/vosklin");
    EXPECT_EQ(StoreLocator::fromEnvironment(std::nullopt, environment({{"HOME", "/h"}})).storeRoot(),
              "/h/.local/share/vosklin/store");
    auto error = test::thrown<StoreLocatorError>([] { StoreLocator::fromEnvironment(std::nullopt, environment({})); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), StoreLocatorError::Kind::containerUnavailable);
}

TEST(StoreLocatorTest, FolderOnTheStoresVolumeIsAcceptedEvenBeforeTheContainerExists) {
    TempDirectory directory;
    StoreLocator locator(directory / "not/yet/made");
    EXPECT_EQ(locator.storeRootFor(directory.path()), directory / "not/yet/made/store");
}

TEST(StoreLocatorTest, FolderOnAnotherVolumeIsRefusedNamingItsVolume) {
    StoreLocator locator("/container", [](const std::string& path) -> std::optional<std::string> {
        if (path.rfind("/media/usb", 0) == 0) return std::string("8:33");
        return std::string("259:2");
    });
    EXPECT_EQ(locator.storeRootFor("/home/ana/Documents"), "/container/store");
    auto elsewhere = test::thrown<StoreLocatorError>([&] { locator.storeRootFor("/media/usb/Photos"); });
    ASSERT_TRUE(elsewhere);
    EXPECT_EQ(elsewhere->kind(), StoreLocatorError::Kind::unsupportedVolume);
    EXPECT_EQ(elsewhere->identifier(), "8:33");
    StoreLocator blind("/container", [](const std::string&) { return std::optional<std::string>(); });
    auto unknown = test::thrown<StoreLocatorError>([&] { blind.storeRootFor("/home/ana"); });
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->kind(), StoreLocatorError::Kind::containerUnavailable);
}

TEST(StoreLocatorTest, DeviceIdentifierIsMajorColonMinor) {
    auto identifier = StoreLocator::deviceIdentifier("/");
    ASSERT_TRUE(identifier.has_value());
    EXPECT_NE(identifier->find(':'), std::string::npos);
    EXPECT_FALSE(StoreLocator::deviceIdentifier("/no/such/path").has_value());
}

}  // namespace
}  // namespace vosklin
