#pragma once

#include <QString>

/// The least that a server can do, to measure against: for each connection a thread that reads the
/// header of one request, then sends a file in blocks of 64 KiB, or receives a body into a file
/// beside it and renames nothing. Never returns; prints its port first.
int runPlainServer(const QString &directory);

/// The share server over `directory` as one share whose root is "r"; the session's id is "s".
/// Prints its port, then serves until the process is ended.
int runShareServer(const QString &directory, const QString &dbPath);
