// Installation of all script classes.
#ifndef NQ_BINDINGTEMP_REGISTERCLASSES_H_
#define NQ_BINDINGTEMP_REGISTERCLASSES_H_

namespace nq::engine {

// Installs the script classes in the calling thread, "Engine" last. In a thread that has them it
// does nothing.
void RegisterClasses();

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_REGISTERCLASSES_H_
