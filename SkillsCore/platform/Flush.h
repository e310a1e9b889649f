#pragma once

// Waits until what was written is on the disk, for what must survive a power cut. Each returns 0 or an error number.

namespace orvanta {

// The names in one folder: what was made, renamed and removed there. Where the file system cannot do that, it is no
// error.
int flushFolder(const char* folder);

// All files and folders in and below a folder.
int flushTree(const char* folder);

}  // namespace orvanta
