// Both hives of the registry, turned into empty ones for as long as a test runs.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

struct scratch_hives {
    scratch_hives() {
        RegDeleteTreeA(HKEY_CURRENT_USER, FOLDER);
        EXPECT_EQ(RegCreateKeyA(HKEY_CURRENT_USER, USER, &user), ERROR_SUCCESS);
        EXPECT_EQ(RegCreateKeyA(HKEY_CURRENT_USER, MACHINE, &machine), ERROR_SUCCESS);
        EXPECT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, machine), ERROR_SUCCESS);
        EXPECT_EQ(RegOverridePredefKey(HKEY_CURRENT_USER, user), ERROR_SUCCESS);
    }
    ~scratch_hives() {
        RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegCloseKey(user);
        RegCloseKey(machine);
        RegDeleteTreeA(HKEY_CURRENT_USER, FOLDER);
    }
    scratch_hives(const scratch_hives &) = delete;
    scratch_hives &operator=(const scratch_hives &) = delete;

    static constexpr const char *FOLDER = "SOFTWARE\\Tarnix scratch";
    static constexpr const char *USER = "SOFTWARE\\Tarnix scratch\\user";
    static constexpr const char *MACHINE = "SOFTWARE\\Tarnix scratch\\machine";
    HKEY user = nullptr;
    HKEY machine = nullptr;
};
