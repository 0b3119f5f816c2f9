// Reading a whole settings file, with the one-line reasons that every reader of settings reports.
//
// The file is opened without waiting (O_NONBLOCK), so that a FIFO of that name is refused at once
// instead of blocking the reader until some writer appears.
#pragma once

#include <string>

// Results of readTextFile.
enum class TextFileRead { Read, Missing, Failed };

// Reads the regular file `path` whole into `bytes`. Missing: there is no such file. Failed: it
// exists but is no regular file, or opening or reading it failed. Both set `error` to
// "PATH: reason", with the system's reason text where it has one ("PATH: cannot open: Permission
// denied", "PATH: not a regular file"); Read leaves `error` alone.
TextFileRead readTextFile(const std::string& path, std::string& bytes, std::string& error);
