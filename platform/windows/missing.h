#pragma once

// Published constants and records that the installed Windows headers lack.
