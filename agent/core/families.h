// The families of checks and the other things that rooms cannot know of each other.
#pragma once

// Puts the check table in force and hands the rooms what they call upwards.
void connect_rooms();

// Clears the flags of the table, for tests.
void families_reset();
