// A display name carried by every counter; it is the name the report prints.
// Immutable after construction. Not thread-safe beyond concurrent reads.
#pragma once

#include <string>

class Named {
 public:
  explicit Named(const std::string& name) : name(name) {}

  const std::string& getName() const { return name; }

 private:
  std::string name;
};
