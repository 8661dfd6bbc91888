// How many handles of the host this process has open.
#pragma once

int count_open_handles();
