/**
 * @file cli_names.h
 * @brief C++ functions of the library, found by what a reader calls them.
 */
#ifndef HOST_CLI_NAMES_H
#define HOST_CLI_NAMES_H

#include <map>
#include <string>

/**
 * Mangled names that the library defines, by their readable form: "S" stands for std::string and "C" for the
 * management namespace, as in "C::XmlFormat(S)".
 */
const std::map<std::string, std::string> &CliNames();
/** Address of a readable name; ends the process if there is none. */
void *CliAddress(const std::string &readable);

template <typename Signature>
class CliFunction;
/** A function, or a member with its object as the first argument. */
template <typename R, typename... A>
class CliFunction<R(A...)> {
public:
    explicit CliFunction(const std::string &readable) : function_(reinterpret_cast<R (*)(A...)>(CliAddress(readable)))
    {
    }
    R operator()(A... args) const { return function_(args...); }

private:
    R (*function_)(A...);
};

#endif
