#pragma once

// The numbers of the module's own resources, shared by the resource script and the code.
