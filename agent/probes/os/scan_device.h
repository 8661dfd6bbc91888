// The device that a scan offers, under the name that this room knows it by.
#pragma once

#include "devtree/scan_device.h"
