// Changes to bytes, the same for the same seed, so that what they find is found again.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace fuzz {

class Mutator {
  public:
    explicit Mutator(std::uint32_t seed) : random_(seed) {}

    // One of the seeds with one to eight changes.
    std::string mutant_of(const std::vector<std::string>& seeds);

  private:
    std::size_t below(std::size_t limit) { return limit == 0 ? 0 : random_() % limit; }
    void change(std::string& bytes, const std::string& other);
    void put_number(std::string& bytes);
    void put_digits(std::string& bytes);

    std::mt19937 random_;
};

}  // namespace fuzz
