// Prints a diagnosis as text and as JSON.
#pragma once

#include "diagnosis.h"

namespace tvctl::doctor {

struct Style {
    bool coloured = false;
    bool quiet = false; // leaves out what is ok
};

std::size_t countOf(const Diagnosis& diagnosis, Severity severity);

// A line for each finding, the table of entry points, and the counts. Control characters are escaped.
std::string asText(const Diagnosis& diagnosis, const Style& style);
std::string asJson(const Diagnosis& diagnosis);

} // namespace tvctl::doctor
