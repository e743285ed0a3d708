// The base of an application: a member that other applications in the process call.
#pragma once

#include <frame/abstract-process-member.h>

namespace frame {

class AbstractApplication : public AbstractProcessMember {
public:
    AbstractApplication();
    ~AbstractApplication() override;

protected:
    int performSetupDone() override;
};

} // namespace frame
