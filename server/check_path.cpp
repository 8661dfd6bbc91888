#include "server/check_path.h"

static std::string escaped(const std::string &component) {
    std::string text;
    for (char c : component) {
        if (c == '.' || c == '\\') text += '\\';
        text += c;
    }
    return text;
}

static std::string group_names(const std::vector<std::string> &path) {
    std::string text;
    for (size_t i = 0; i + 1 < path.size(); i++)
        text += escaped(path[i]) + '.';
    return text;
}

std::string full_check_name(const std::vector<std::string> &path) {
    return path.empty() ? "" : group_names(path) + escaped(path.back());
}

std::string plain_check_name(const std::vector<std::string> &path) {
    return path.empty() ? "" : group_names(path) + path.back();
}

bool name_matches(const std::string &pattern, const std::string &name) {
    size_t p = 0;
    size_t n = 0;
    size_t star = std::string::npos;
    size_t resume = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = n;
        } else if (p < pattern.size() && pattern[p] == name[n]) {
            p++;
            n++;
        } else if (star != std::string::npos) { // let the last star take one more character
            p = star + 1;
            n = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        p++;
    return p == pattern.size();
}

bool is_log(const std::vector<std::string> &path) {
    return path.size() > 1 && path.front() == "log";
}

std::string log_path(const std::vector<std::string> &path) {
    bool has_slashes = path[1] == "/" || path[1] == "/forward" || path[1] == "eventlog";
    std::string text = path[1];
    for (size_t i = 2; i < path.size(); i++) {
        if (text != "/") text += has_slashes ? '/' : '\\';
        text += path[i];
    }
    return text;
}

static std::string in_lower_case(std::string text) {
    for (char &c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

bool log_path_matches(const std::string &pattern, const std::string &path) {
    if (path.starts_with('/')) return name_matches(pattern, path);
    return name_matches(in_lower_case(pattern), in_lower_case(path));
}
