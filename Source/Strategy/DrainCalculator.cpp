#include <downloader/Strategy/DrainCalculator.h>

namespace downloader {

DrainCalculator::~DrainCalculator() = default;

void DrainCalculator::Update() {}

std::string DrainCalculator::Describe() { return std::string(); }

}  // namespace downloader
