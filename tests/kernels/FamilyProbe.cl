// module: FamilyProbe
// A test-only family of three variants of one parameter list, defined by one macro over the variant list:
// each variant applies its own operation to a row of floats, so a test sees which variant ran.
#include "KernelDialect.h"
#include "ProbeParameters.h"

// The variants' indices, from the list.
#define LM_FAMILY_PROBE_INDEX(context, variant) kFamilyProbe##variant,
enum { LM_VARIANTS_FamilyProbe(LM_FAMILY_PROBE_INDEX, _) };

// The body every variant shares; each passes its own index, a constant the compiler folds.
LM_DEVICE void FamilyProbeBody(LM_PARAMETER_DECLARATIONS(LM_PARAMETERS_FamilyProbe), int variant) {
  const int x = LM_GLOBAL_X;
  if (x >= count) return;
  const float value = values[x];
  values[x] = variant == kFamilyProbeAdd ? value + operand : variant == kFamilyProbeMultiply ? value * operand : -value;
}

#define LM_FAMILY_PROBE_KERNEL(context, variant)                                       \
  LM_KERNEL_WITH_PARAMETERS(LM_NAME_FamilyProbe(variant), LM_PARAMETERS_FamilyProbe) { \
    FamilyProbeBody(LM_ARGUMENTS(LM_PARAMETERS_FamilyProbe), kFamilyProbe##variant);   \
  }
LM_VARIANTS_FamilyProbe(LM_FAMILY_PROBE_KERNEL, _)
