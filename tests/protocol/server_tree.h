// What a server sends of a configuration: checks, groups and actions, as the bytes of the wire.
#pragma once

#include "protocol/wire.h"

// The records of a check's kind.
std::string wire_continuous(const std::string &thresholds);
std::string wire_real_continuous(const std::string &thresholds);
std::string wire_bitmap(const std::string &places); // enumerated values
std::string wire_log();
std::string wire_adv_log(const std::string &separator, const std::string &rules, const std::string &silences);
std::string wire_rule(const std::string &clause, uint32_t status, uint32_t decision,
                      const std::string &destination);

// A check: frequency, id, the record of its kind, and what stands behind that (a conf_id).
std::string wire_check(int64_t frequency, const std::string &id, const std::string &kind,
                       const std::string &behind = "");

// Four thresholds that are off.
inline const std::string WIRE_NO_THRESHOLDS = wire_null() + wire_null() + wire_null() + wire_null();

// A check with these thresholds off, every minute.
std::string wire_simple_check(const std::string &id);

std::string wire_group(const std::string &id, const std::string &checks, const std::string &groups = "");

// Subgroups come first here.
std::string wire_action_group(const std::string &id, const std::string &groups, const std::string &actions);
std::string wire_action(const std::string &id);
