#include "platform/faces/CIDetector.h"

#include "platform/faces/CIDetectorModule.h"
#include "platform/foundation/Lock.h"

#include <utility>

namespace platform {

namespace {

Lock factoryLock;
CIDetector::Factory faceDetectorFactory GUARDED_BY(factoryLock) = [] {
    return CIDetectorModule::mainModule().makeDetector();
};

} // namespace

std::unique_ptr<CIDetector> CIDetector::detectorOfTypeFace()
{
    Factory factory;
    {
        LockGuard guard(factoryLock);
        factory = faceDetectorFactory;
    }
    return factory ? factory() : nullptr;
}

void CIDetector::setFaceDetectorFactory(Factory factory)
{
    LockGuard guard(factoryLock);
    faceDetectorFactory = std::move(factory);
}

} // namespace platform
