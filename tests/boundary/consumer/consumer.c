#include <stdio.h>

#include <scopemount.h>

int main(void) {
  uint32_t status = 0;
  if (ScopeGetMountStatus(&status) != SCOPE_NOT_CONNECTED) return 1;
  printf("consumer linked: separation %.3f\n", ScopeAngularSeparation(0.0, 0.0, 0.5, 0.0));
  return 0;
}
