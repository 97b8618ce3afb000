// File-tree utilities of the simulator's host side: copying an image, removing a root.
#pragma once

#include <string>

// `a` and `b` joined with one slash between them.
std::string join_path(const std::string& a, const std::string& b);
// Copies the tree at `src` into the existing directory `dst`, keeping symlinks as they are (also
// relative ones), file modes and empty files. False with a message on the first failure.
bool copy_tree(const std::string& src, const std::string& dst, std::string* err);
// Removes `path` and everything below it without following symlinks or crossing mount points.
void remove_tree(const std::string& path);
// Creates `path` and its missing parents.
bool make_dirs(const std::string& path, unsigned mode = 0755);
bool is_empty_dir(const std::string& path);
