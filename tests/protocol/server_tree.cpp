#include "protocol/server_tree.h"

std::string wire_continuous(const std::string &thresholds) {
    return wire_record("A0", thresholds);
}

std::string wire_real_continuous(const std::string &thresholds) {
    return wire_record("A3", thresholds);
}

std::string wire_bitmap(const std::string &places) {
    return wire_record("A1", wire_list(places));
}

std::string wire_log() {
    return wire_record("A2", "");
}

std::string wire_adv_log(const std::string &separator, const std::string &rules,
                         const std::string &silences) {
    return wire_record("A4", wire_text(separator) + wire_enumerated(1) + wire_list(rules) + silences);
}

std::string wire_rule(const std::string &clause, uint32_t status, uint32_t decision,
                      const std::string &destination) {
    return wire_list(wire_text(clause) + wire_enumerated(status) + wire_enumerated(decision) +
                     wire_text(destination));
}

std::string wire_check(int64_t frequency, const std::string &id, const std::string &kind,
                       const std::string &behind) {
    return wire_list(wire_integer(frequency) + wire_text(id) + kind + behind);
}

std::string wire_simple_check(const std::string &id) {
    return wire_check(60, id, wire_continuous(WIRE_NO_THRESHOLDS));
}

std::string wire_group(const std::string &id, const std::string &checks, const std::string &groups) {
    return wire_list(wire_text(id) + wire_list(checks) + wire_list(groups));
}

std::string wire_action_group(const std::string &id, const std::string &groups, const std::string &actions) {
    return wire_list(wire_text(id) + wire_list(groups) + wire_list(actions));
}

std::string wire_action(const std::string &id) {
    return wire_list(wire_text(id));
}
