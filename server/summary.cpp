#include "server/summary.h"

#include "server/value_text.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <map>

namespace {

constexpr size_t SILENT_CHECKS_SHOWN = 20;
constexpr int64_t ORDERS_SHOWN = 20;

using families_by_name = std::map<std::string, family_summary>;

int64_t first_number(database &store, const char *sql) {
    query row(store, sql);
    return row.row() ? row.integer(0) : 0;
}

void count_offers(database &store, families_by_name &families) {
    // A device belongs to the family of its top group.
    query row(store,
              "WITH RECURSIVE top(id, family) AS ("
              " SELECT id, key FROM groups WHERE parent_id IS NULL"
              " UNION ALL SELECT groups.id, top.family FROM groups JOIN top ON groups.parent_id = top.id)"
              " SELECT family, count(*) FROM devices JOIN top ON devices.group_id = top.id GROUP BY family");
    while (row.row())
        families[row.text(0)].offered = row.integer(1);
}

void count_checks(database &store, families_by_name &families) {
    query row(store, "SELECT family, count(*) FROM checks WHERE configured <> 0 GROUP BY family");
    while (row.row())
        families[row.text(0)].checks = row.integer(1);
}

void count_results(database &store, families_by_name &families) {
    query row(store, "SELECT checks.family, results.status, count(*) FROM results"
                     " JOIN checks ON checks.id = results.check_id GROUP BY checks.family, results.status");
    while (row.row()) {
        int64_t status = std::clamp<int64_t>(row.integer(1), 0, 3);
        families[row.text(0)].results[status] += row.integer(2);
    }
}

std::vector<std::string> find_silent_checks(database &store) {
    std::vector<std::string> names;
    query row(store,
              "SELECT agents.name, checks.name FROM checks JOIN agents ON agents.id = checks.agent_id"
              " WHERE configured <> 0 AND NOT EXISTS (SELECT 1 FROM results WHERE check_id = checks.id)"
              " ORDER BY agents.name, checks.name");
    while (row.row())
        names.push_back(row.text(0) + ": " + row.text(1));
    return names;
}

std::vector<order_summary> find_orders(database &store) {
    std::vector<order_summary> orders;
    query row(store, "SELECT agents.name, actions.name, ordered_at, coalesce(sent_at, 0),"
                     " coalesce(taken_at, 0), coalesce(pruned_at, 0) FROM actions"
                     " JOIN agents ON agents.id = actions.agent_id ORDER BY actions.id DESC LIMIT ?");
    row.with(ORDERS_SHOWN);
    while (row.row())
        orders.insert(orders.begin(), {.agent = row.text(0),
                                       .action = row.text(1),
                                       .ordered_at = row.integer(2),
                                       .sent_at = row.integer(3),
                                       .taken_at = row.integer(4),
                                       .pruned_at = row.integer(5)});
    return orders;
}

std::string order_text(const order_summary &order) {
    std::string text = "  " + time_text(order.ordered_at) + "  " + shown(order.agent, 64) + ": " +
                       shown(order.action, 64) + ", ";
    if (order.sent_at == 0) return text + "waits for the agent's next checkin\n";
    if (order.taken_at == 0) return text + "sent; whether the agent has taken it is not known\n";
    text += "taken " + time_text(order.taken_at);
    return order.pruned_at == 0 ? text + "\n" : text + ", pruned " + time_text(order.pruned_at) + "\n";
}

std::string row_text(const std::string &name, const family_summary &row) {
    int64_t results = row.valid_results() + row.results[3];
    char text[160];
    snprintf(text, sizeof text,
             "%-12.40s %8" PRId64 " %8" PRId64 " %8" PRId64 " %8" PRId64 " %8" PRId64 " %8" PRId64
             " %8" PRId64 "\n",
             shown(name, 40).c_str(), row.offered, row.checks, results, row.results[0], row.results[1],
             row.results[2], row.results[3]);
    return text;
}

family_summary total_of(const store_summary &summary) {
    family_summary total = {.name = "together"};
    for (const family_summary &family : summary.families) {
        total.offered += family.offered;
        total.checks += family.checks;
        for (size_t i = 0; i < std::size(total.results); i++)
            total.results[i] += family.results[i];
    }
    return total;
}

std::string silent_checks_text(const std::vector<std::string> &names) {
    if (names.empty()) return "";
    std::string text = "\nchecks without a result so far:\n";
    size_t shown_count = std::min(names.size(), SILENT_CHECKS_SHOWN);
    for (size_t i = 0; i < shown_count; i++)
        text += "  " + shown(names[i]) + "\n";
    if (size_t more = names.size() - shown_count; more > 0)
        text += "  and " + std::to_string(more) + " more\n";
    return text;
}

std::string head_text(const store_summary &summary) {
    std::string text = std::to_string(summary.agents) + (summary.agents == 1 ? " agent" : " agents");
    if (summary.first_result == 0) return text + ", no results yet\n";
    return text + ", results from " + time_text(summary.first_result) + " to " +
           time_text(summary.last_result) + "\n";
}

} // namespace

const char *summarize(database &store, store_summary *out) {
    families_by_name families;
    out->agents = first_number(store, "SELECT count(*) FROM agents");
    out->first_result = first_number(store, "SELECT coalesce(min(received_at), 0) FROM results");
    out->last_result = first_number(store, "SELECT coalesce(max(received_at), 0) FROM results");
    count_offers(store, families);
    count_checks(store, families);
    count_results(store, families);
    out->silent_checks = find_silent_checks(store);
    out->orders = find_orders(store);
    for (auto &[name, family] : families) {
        family.name = name;
        out->families.push_back(family);
    }
    return store.take_failure();
}

std::string summary_text(const store_summary &summary) {
    std::string text = head_text(summary);
    text += "\nfamily        offered   checks  results     good  warning    alert    error\n";
    for (const family_summary &family : summary.families)
        text += row_text(family.name, family);
    if (summary.families.size() > 1) text += row_text("together", total_of(summary));
    text += silent_checks_text(summary.silent_checks);
    if (!summary.orders.empty()) text += "\nordered actions:\n";
    for (const order_summary &order : summary.orders)
        text += order_text(order);
    return text;
}

std::vector<std::string> unsatisfied(const store_summary &summary, const std::vector<std::string> &required) {
    std::vector<std::string> missing;
    auto is_missing = [&](const std::string &name) {
        for (const family_summary &family : summary.families)
            if (family.name == name) return family.valid_results() == 0;
        return true;
    };
    for (const std::string &name : required)
        if (is_missing(name)) missing.push_back(name);
    for (const family_summary &family : summary.families)
        if (family.checks > 0 && family.valid_results() == 0 &&
            std::find(missing.begin(), missing.end(), family.name) == missing.end())
            missing.push_back(family.name);
    if (summary.agents == 0) missing.push_back("(no agent)");
    return missing;
}
