// A diagnosis as people and programs read it.
#pragma once

#include "diagnosis.h"

namespace tvctl::doctor {

struct Style {
    bool coloured = false;
    bool quiet = false; // leaves out what is ok
};

std::size_t countOf(const Diagnosis& diagnosis, Severity severity);

// A line for each finding, the table of entryPoints, and the count. Nothing in it can steer a terminal.
std::string asText(const Diagnosis& diagnosis, const Style& style);
std::string asJson(const Diagnosis& diagnosis);

} // namespace tvctl::doctor
