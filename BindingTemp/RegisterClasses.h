// Installation of all JavaScript classes.
#ifndef NQ_BINDINGTEMP_REGISTERCLASSES_H_
#define NQ_BINDINGTEMP_REGISTERCLASSES_H_

namespace nq::engine {

// Installs the JavaScript classes in the calling thread, "Engine" last. Does nothing if the thread
// has them already.
void RegisterClasses();

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_REGISTERCLASSES_H_
