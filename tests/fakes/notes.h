// The texts that tests have seen logged or returned, for the script that lists the others.
#pragma once

#include <string>

void note_text(const std::string &text);

// Appends all notes to the file that TN_TEXT_NOTES names, if it is set.
void write_notes();
