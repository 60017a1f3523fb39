// Output files that appear whole or not at all: everything is written to a
// temporary file in the target's directory, which is renamed onto the target
// only once writing has succeeded. A failed or interrupted run therefore
// never leaves a truncated file under the target's name.
#pragma once

#include <string>

// Creates the folders of target's directory part that do not exist yet (as
// mkdir -p does, with the usual permissions), so that writers accept paths
// such as flows/00000.flo in a fresh folder. Returns "" when the directory
// exists afterwards, else the reason, naming the folder that could not be
// made ("folder a/b cannot be created: Not a directory").
std::string makeFoldersFor(const std::string& target);

class CAtomicFile {
 public:
  // Creates the missing folders of target's path (makeFoldersFor), then an
  // empty temporary file beside target whose name keeps target's extension
  // (so writers that check the extension accept it). Prints the reason and
  // throws EFileNotFound when a folder cannot be made or is not writable.
  explicit CAtomicFile(const std::string& target);
  CAtomicFile(const CAtomicFile&) = delete;
  CAtomicFile& operator=(const CAtomicFile&) = delete;
  // Removes the temporary file unless it was committed.
  ~CAtomicFile();

  const char* tempPath() const { return temp_.c_str(); }
  const std::string& target() const { return target_; }

  // Renames the temporary file onto the target (replacing an existing file),
  // with the permissions a newly created file would get. Prints the reason
  // and throws EFileWriteFailed when the rename fails.
  void commit();

 private:
  std::string target_;
  std::string temp_;
  bool committed_ = false;
};
