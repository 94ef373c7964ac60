// Keeps the calling thread, and what it starts later, on one processor.
#pragma once

void StayOn(int processor);
