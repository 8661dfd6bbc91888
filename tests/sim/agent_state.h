// The agent's process-wide state between two lives in one test program.
#pragma once

// Puts everything back to what a new process finds. The agent must have ended.
void forget_agent_state();
