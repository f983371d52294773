#include "fq/documents/DataLocations.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace fq::documents {
namespace {

namespace fs = std::filesystem;
using Variables = std::map<std::string, std::string>;

Environment environmentOf(const Variables& variables) {
    return [&variables](const char* name) -> const char* {
        const auto found = variables.find(name);
        return found == variables.end() ? nullptr : found->second.c_str();
    };
}

TEST(DataLocationsTest, FoldersFollowTheEnvironment) {
    struct Case {
        const char* what;
        Variables variables;
        fs::path config, cache, documents;
    };
    const Variables xdg{{"HOME", "/home/ana"},
                        {"XDG_CONFIG_HOME", "/x/conf"},
                        {"XDG_CACHE_HOME", "/x/cache"},
                        {"XDG_DOCUMENTS_DIR", "/x/Dokumente"}};
    auto withHome = [&xdg](std::string home) {
        auto variables = xdg;
        variables["FRETQUILL_HOME"] = std::move(home);
        return variables;
    };
    const std::vector<Case> cases{
        {"home only",
         {{"HOME", "/home/ana"}},
         "/home/ana/.config/fretquill",
         "/home/ana/.cache/fretquill",
         "/home/ana/Documents/Fret Quill"},
        {"XDG folders", xdg, "/x/conf/fretquill", "/x/cache/fretquill", "/x/Dokumente/Fret Quill"},
        {"empty XDG values count as unset",
         {{"HOME", "/home/ana"},
          {"XDG_CONFIG_HOME", ""},
          {"XDG_CACHE_HOME", ""},
          {"XDG_DOCUMENTS_DIR", ""}},
         "/home/ana/.config/fretquill",
         "/home/ana/.cache/fretquill",
         "/home/ana/Documents/Fret Quill"},
        {"relative XDG values are ignored",
         {{"HOME", "/home/ana"},
          {"XDG_CONFIG_HOME", "conf"},
          {"XDG_CACHE_HOME", "./c"},
          {"XDG_DOCUMENTS_DIR", "Docs"}},
         "/home/ana/.config/fretquill",
         "/home/ana/.cache/fretquill",
         "/home/ana/Documents/Fret Quill"},
        {"FRETQUILL_HOME moves everything", withHome("/tmp/fq"), "/tmp/fq/config", "/tmp/fq/cache",
         "/tmp/fq/Documents"},
        {"an empty FRETQUILL_HOME is unset", withHome(""), "/x/conf/fretquill",
         "/x/cache/fretquill", "/x/Dokumente/Fret Quill"},
    };
    for (const auto& c : cases) {
        const auto environment = environmentOf(c.variables);
        EXPECT_EQ(configDirectory(environment), c.config) << c.what;
        EXPECT_EQ(cacheDirectory(environment), c.cache) << c.what;
        EXPECT_EQ(documentsDirectory(environment), c.documents) << c.what;
    }
    EXPECT_EQ(stateDirectory(environmentOf({{"HOME", "/home/ana"}})),
              "/home/ana/.local/state/fretquill");
    EXPECT_EQ(stateDirectory(environmentOf(withHome("/tmp/fq"))), "/tmp/fq/state");
}

TEST(DataLocationsTest, WithoutHomeTheAccountsHomeIsUsed) {
    for (const Variables& variables :
         {Variables{}, Variables{{"HOME", ""}}, Variables{{"HOME", "ana"}}}) {
        const auto config = configDirectory(environmentOf(variables));
        EXPECT_TRUE(config.is_absolute()) << config;
        EXPECT_EQ(config.filename(), "fretquill");
        EXPECT_EQ(config.parent_path().filename(), ".config");
    }
}

TEST(DataLocationsTest, LookingUpCreatesNothing) {
    const auto root = fs::temp_directory_path() / "fq-locations-never-created";
    fs::remove_all(root);
    const Variables variables{{"FRETQUILL_HOME", root.string()}};
    const auto environment = environmentOf(variables);
    (void)configDirectory(environment);
    (void)cacheDirectory(environment);
    (void)documentsDirectory(environment);
    EXPECT_FALSE(fs::exists(root));
}

} // namespace
} // namespace fq::documents
