#include "launcher/registration.h"

#include "fakes/test_host.h"
#include "launcher/launcher_ops.h"
#include "launcher/options.h"
#include "platform/fatal.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

using lines = std::vector<std::string>;

lines registered;
const char *refusal;

const char *install(const char *const *words) {
    for (; *words != nullptr; words++)
        registered.emplace_back(*words);
    return refusal;
}

bool full_path(const char *path, char *buffer, size_t size) {
    int length = snprintf(buffer, size, "C:\\here\\%s", path);
    return static_cast<size_t>(length) < size;
}

const launcher_ops fake_launcher = {.install = install, .full_path = full_path};

} // namespace

class service_registration : public testing::Test {
protected:
    service_registration() {
        launcher_host = &fake_launcher;
        host.program = "C:\\Program Files\\tnlauncher.exe";
        registered.clear();
        refusal = nullptr;
    }
    ~service_registration() override { EXPECT_EQ(host.blocks, 0); }

    test_host host;
    const char *words[3] = {nullptr, nullptr, nullptr};
    launcher_options options = {.agent_words = const_cast<char **>(words)};
};

TEST_F(service_registration, names_the_launcher_itself) {
    EXPECT_SUCCESS(register_service(options));
    EXPECT_EQ(registered, lines{"C:\\Program Files\\tnlauncher.exe"});
}

TEST_F(service_registration, brings_the_options_with_full_paths_and_the_agents_words) {
    options.folder = "f";
    options.program = "p";
    words[0] = "-l";
    words[1] = "0";
    EXPECT_SUCCESS(register_service(options));
    EXPECT_EQ(registered, (lines{"C:\\Program Files\\tnlauncher.exe", "--folder", "C:\\here\\f", "--program",
                                 "C:\\here\\p", "--", "-l", "0"}));
}

TEST_F(service_registration, passes_on_why_the_host_refuses) {
    refusal = "no";
    EXPECT_FAILURE(register_service(options), "no");
}

TEST_F(service_registration, needs_to_know_the_paths) {
    std::string longest(2000, 'x');
    options.program = longest.c_str();
    EXPECT_FAILURE(register_service(options), ("cannot use " + std::string(200, 'x')).c_str());
    options.folder = longest.c_str();
    EXPECT_FAILURE(register_service(options), ("cannot use " + std::string(200, 'x')).c_str());
    host.program.clear();
    EXPECT_FAILURE(register_service(options), "cannot tell where the launcher is");
    EXPECT_TRUE(registered.empty());
}

TEST_F(service_registration, needs_memory) {
    for (uint32_t nth : {1U, 2U}) {
        host.fail_allocation = nth;
        EXPECT_FAILURE(register_service(options), "out of memory");
    }
    EXPECT_TRUE(registered.empty());
}
