// The simulated device's root on the host, and the private mount namespace that makes it "/".
#pragma once

#include <string>
#include <vector>

#include "file_tree.h"

// Where tarn_sim keeps its own files inside a root: the properties file and the control socket.
constexpr const char kSimDir[] = "/.tarn_sim";
constexpr const char kPropertiesFile[] = "/.tarn_sim/build.prop";
constexpr const char kControlSocket[] = "/.tarn_sim/control";

// Writes `root`/.tarn_sim/build.prop: the image's top-level build.prop with every KEY=VALUE of
// `props` applied over it (replacing a definition of the same key, or appended).
bool write_properties(const std::string& image, const std::string& root,
                      const std::vector<std::string>& props, std::string* err);

// Project checkout that holds this tarn_sim binary: the nearest directory above the binary that
// has a CMakeLists.txt ("" when there is none), and the directory of the binary itself.
std::string find_checkout();
std::string self_dir();

struct SandboxConfig {
    std::string root;                    // absolute host path of the device root
    std::vector<std::string> host_dirs;  // absolute host directories visible at the same path
    std::vector<std::string> command;
    std::string cwd;  // working directory for the command when it exists inside
};

// In the forked child: builds the mount namespace, makes the root "/", execs the command. Never
// returns; exits 127 when the sandbox cannot be set up or the command cannot be run.
[[noreturn]] void exec_in_sandbox(const SandboxConfig& cfg);
