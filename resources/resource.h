#pragma once

// The numbers of the module's own resources, shared by the resource script and the code.

// Type of the records of the device's built-in fonts, numbered 1 to 80.
#define DEVICE_FONT_RESOURCE 258
