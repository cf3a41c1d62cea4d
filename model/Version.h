// Build identification: which code-generator release produced this library.
#pragma once

namespace OrvaneLumetCodeGen {

// Prints the six identification lines to standard output.
void version();

}  // namespace OrvaneLumetCodeGen
