// What the product's programs do before anything else.
#pragma once

namespace platform {

// For the whole process: the system shows no box when something fails, and looks for no library in
// the current folder. A program that links this ends with exit code 1, and writes nothing, when an
// exception is not caught. Does not throw.
void ShowNothingAndLoadNothingFromTheCurrentFolder();

}  // namespace platform
