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
