#include <velacamplix/statevector.hpp>

namespace pbamplix {

PybindAmplixStateVector::PybindAmplixStateVector() = default;
PybindAmplixStateVector::~PybindAmplixStateVector() = default;

std::vector<std::string>& PybindAmplixStateVector::get_named_ctrl_gates() { return named_ctrl_gates; }

}  // namespace pbamplix
