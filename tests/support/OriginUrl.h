// Where the suites that talk to dlorigin find it: DLORIGIN_URL, else the first
// line of the file that DLORIGIN_URL_FILE names (the CTest fixture of
// tests/support/Origin.cmake writes it).
#ifndef TESTS_SUPPORT_ORIGINURL_H_
#define TESTS_SUPPORT_ORIGINURL_H_

#include <string>

namespace dltest {

// "http://127.0.0.1:<port>", or "" when no origin was set up.
std::string OriginUrlFromEnvironment();

}  // namespace dltest

#endif  // TESTS_SUPPORT_ORIGINURL_H_
