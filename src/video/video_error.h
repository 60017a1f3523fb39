// Failures of video input and output. Unlike the image code's exception
// classes, this one carries its message (what()) and nothing is printed
// before it is thrown, so that the caller, a program or a binding, reports
// it once in its own way.
#pragma once

#include <stdexcept>
#include <string>

class EVideoError : public std::runtime_error {
 public:
  explicit EVideoError(const std::string& message) : std::runtime_error(message) {}
};
