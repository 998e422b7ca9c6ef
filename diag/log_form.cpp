#include "diag/log_form.h"

namespace qov {

std::atomic<unsigned char> LogForm::inForce_{0};

}  // namespace qov
