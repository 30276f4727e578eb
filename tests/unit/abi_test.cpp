// The exported surface of the two shared objects, read back with binutils:
// exactly the listed entry points, the expected SONAMEs, and no dependency
// beyond the C library (and the identifier library for the catalogue).
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string run(const std::string &command)
{
    std::string out;
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot run " << command;
        return out;
    }
    std::array<char, 512> chunk;
    while (fgets(chunk.data(), chunk.size(), pipe) != nullptr) {
        out += chunk.data();
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return out;
}

std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        out.push_back(line);
    }
    return out;
}

std::set<std::string> exported(const char *library)
{
    std::set<std::string> names;
    for (const auto &line : lines(run(std::string("nm -D --defined-only ") + library))) {
        const auto space = line.rfind(' ');
        if (space != std::string::npos) {
            names.insert(line.substr(space + 1));
        }
    }
    return names;
}

// The bracketed values of one kind of dynamic-section entry.
std::set<std::string> dynamic(const char *library, const std::string &tag)
{
    std::set<std::string> values;
    for (const auto &line : lines(run(std::string("readelf -d ") + library))) {
        if (line.find("(" + tag + ")") == std::string::npos) {
            continue;
        }
        const auto open = line.find('['), close = line.rfind(']');
        if (open != std::string::npos && close > open) {
            values.insert(line.substr(open + 1, close - open - 1));
        }
    }
    return values;
}

// Dependencies apart from what a sanitizer build adds or takes over: its
// runtimes come in, and with them libc may drop out under --as-needed.
std::set<std::string> needed(std::set<std::string> libraries)
{
#ifdef MIVO_SANITIZED
    std::erase_if(libraries, [](const std::string &l) { return l == "libc.so.6" || l.find("san.so") != l.npos; });
#endif
    return libraries;
}

const char *const messages[] = {
    "svc_regn", "svc_regn_done", "svc_unregn", "svc_unregn_done",
    "write_env_pep_record", "write_env_pep_record_done", "write_env_raw_record", "write_env_raw_record_done",
    "write_env_volt_thresholds", "write_env_volt_thresholds_done",
    "write_env_current_thresholds", "write_env_current_thresholds_done",
    "write_env_temp_thresholds", "write_env_temp_thresholds_done",
    "log_env_sensor_info", "log_env_sensor_info_done", "log_bulk_env_sensor_info", "log_bulk_env_sensor_info_done",
    "write_syslog_thresholds", "write_syslog_thresholds_done", "log_syslog", "log_syslog_done",
    "log_str_thresholds", "log_str_thresholds_done", "log_str", "log_str_done",
    "log_uptime", "log_uptime_done", "log_diag_record", "log_diag_record_done",
    "log_diag_str_record", "log_diag_str_record_done",
    "mgbl_hello", "mgbl_hello_done", "mgbl_notify_locations", "mgbl_request", "mgbl_request_done",
};

TEST(Abi, CatalogueExportsExactlyTheEntryPoints)
{
    ASSERT_EQ(std::size(messages), 37u);
    std::set<std::string> expected;
    for (const char *m : messages) {
        for (const char *suffix : {"_encode_ext", "_decode_ext", "_duplicate", "_free_ext"}) {
            expected.insert(std::string("mivo_") + m + suffix);
        }
    }
    ASSERT_EQ(expected.size(), 148u);
    EXPECT_EQ(exported(MIVO_OBFL_MGR_PATH), expected);
}

TEST(Abi, IdentifierLibraryExportsFourEntryPoints)
{
    const std::set<std::string> expected{"mivo_tesk_eid_st_encode_ext", "mivo_tesk_eid_st_decode_ext",
                                         "mivo_tesk_eid_st_duplicate", "mivo_tesk_eid_st_free_ext"};
    EXPECT_EQ(exported(MIVO_TESK_EID_PATH), expected);
}

TEST(Abi, SonamesAndDependencies)
{
    EXPECT_EQ(dynamic(MIVO_OBFL_MGR_PATH, "SONAME"), std::set<std::string>{"libmivo_obfl_mgr.so.1"});
    EXPECT_EQ(dynamic(MIVO_TESK_EID_PATH, "SONAME"), std::set<std::string>{"libmivo_tesk_eid.so.1"});
    EXPECT_EQ(needed(dynamic(MIVO_OBFL_MGR_PATH, "NEEDED")), needed({"libc.so.6", "libmivo_tesk_eid.so.1"}));
    EXPECT_EQ(needed(dynamic(MIVO_TESK_EID_PATH, "NEEDED")), needed({"libc.so.6"}));
}

} // namespace
