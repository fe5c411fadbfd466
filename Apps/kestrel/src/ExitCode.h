#pragma once
// The program's exit codes.
namespace ExitCode {
constexpr int Success = 0; // the work was done
constexpr int Failure = 1; // the work failed (message on stderr)
constexpr int Usage = 2;   // wrong usage: unknown option, missing or bad argument
} // namespace ExitCode
