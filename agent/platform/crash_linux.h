// What the handler of faults has changed that programs inherit.
#pragma once

// Puts the limit on cores back to what it was before the handler was installed. For the child of a fork.
void restore_core_limit();
