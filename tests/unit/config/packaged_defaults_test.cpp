#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

#include "config/corvane_config.h"

TEST(PackagedDefaultsTest, AreTheBuiltInOnes)
{
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> tree(LoadConfigFileNotExist(), cJSON_Delete);
    ASSERT_NE(tree, nullptr);
    const std::unique_ptr<char, decltype(&cJSON_free)> builtIn(cJSON_Print(tree.get()), cJSON_free);
    std::ifstream file(CORVANE_TEST_DATA "/../packaging/config/corvane_config.default.json");
    std::ostringstream packaged;
    packaged << file.rdbuf();

    EXPECT_EQ(packaged.str(), std::string(builtIn.get()) + "\n");
}
