// The one text in which a host of the NT family hands a program its words.
#pragma once

// Joins the words, ended by an absent one, so that the rules by which programs of such a host take the text
// apart (those of its CommandLineToArgvW) give the same words again. The first one is the program's path and
// holds no quotation mark. A new text for heap_free, or absent when memory is out.
char *join_words(const char *const *words);
