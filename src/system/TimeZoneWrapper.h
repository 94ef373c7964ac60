// The name of the system's time zone.
#pragma once

// As the system has it now, not as it was when the process started. The text is valid until the
// next call; main thread only.
extern "C" const char* GetLocalTimeZoneName();
