// A library that holds nothing but its messages.
