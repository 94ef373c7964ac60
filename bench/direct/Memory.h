// This process's resident memory in kB.
#pragma once

double ResidentMemory();
