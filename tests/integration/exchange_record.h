// Each exchange of the integration suite, kept for the contract check
// (tests/contract/check_exchanges.py) when ISPIAAS_EXCHANGES names a file.
#ifndef TESTS_EXCHANGE_RECORD_H
#define TESTS_EXCHANGE_RECORD_H

#include <string>

// Appends one JSON line {"method", "target", "body", "status", "allow",
// "answer"} to the file; nothing when the variable is unset or no answer came.
void RecordExchange(const std::string& method, const std::string& target, const std::string& body,
                    const std::string& head, int status, const std::string& answer);

#endif  // TESTS_EXCHANGE_RECORD_H
