// The limits of the process.
#pragma once

// As many descriptors as the process may have.
void AllowManyDescriptors();
