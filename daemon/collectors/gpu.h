// GPU collector state shared with the CPU collector, whose init starts the GPU's residency
// tracking afresh.
#pragma once

// Forgets every kept row of the GPU's transition table.
void gpu_clear_kept_rows();
