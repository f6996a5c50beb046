#include "vnxstd/except/catalogue.h"

#include "vnxstd/archive/archive.h"

namespace {

const qc_ErrorRegistration<qcDictionary::Errors, qcDictionary::BadParams> dictionaryRegistered;
const qc_ErrorRegistration<qcStringLiteral::Errors, qcStringLiteral::BadParams> stringLiteralRegistered;
const qc_ErrorRegistration<qc_ProjectionMethod::Errors, qc_ProjectionMethod::ClippedProjection,
                           qc_ProjectionMethod::ZeroSubsamplingFactor, qc_ProjectionMethod::BadProjectionRegion>
    projectionMethodRegistered;
const qc_ErrorRegistration<qcAcqImage::Errors, qcAcqImage::NotSupported> acqImageRegistered;
const qc_ErrorRegistration<qcRobustFitDefs::Errors, qcRobustFitDefs::BadParams> robustFitDefsRegistered;
const qc_ErrorRegistration<qcAdaptiveRANSACDefs::Errors, qcAdaptiveRANSACDefs::BadParams,
                           qcAdaptiveRANSACDefs::FailedToFitModel>
    adaptiveRANSACDefsRegistered;
const qc_ErrorRegistration<qcThreadID::Errors, qcThreadID::CouldNotRegister, qcThreadID::CreateFailed>
    threadIDRegistered;
const qc_ErrorRegistration<qcAffineSamplingParams::Errors, qcAffineSamplingParams::BadNumSamples,
                           qcAffineSamplingParams::NotImplemented>
    affineSamplingParamsRegistered;
const qc_ErrorRegistration<qcAffTransDefs::Errors, qcAffTransDefs::UnboundWindow, qcAffTransDefs::Clipped>
    affTransDefsRegistered;
const qc_ErrorRegistration<qcSampledImageWarpDefs::Errors, qcSampledImageWarpDefs::BadParams>
    sampledImageWarpDefsRegistered;
const qc_ErrorRegistration<qcBoard::Errors, qcBoard::BadParams, qcBoard::StaticInitDisorder, qcBoard::NotSupported,
                           qcBoard::HardwareNotResponding, qcBoard::Timeout, qcBoard::HardwareInUse,
                           qcBoard::HardwareNotInitialized, qcBoard::FpgaLoadFailure, qcBoard::BadEERAMContents,
                           qcBoard::MultiProcessAccessFailed>
    boardRegistered;
const qc_ErrorRegistration<qcAccelerator::Errors, qcAccelerator::BadFile, qcAccelerator::BootFailure,
                           qcAccelerator::ConnectionBroken>
    acceleratorRegistered;
const qc_ErrorRegistration<qcAffProjImgDefs::Errors, qcAffProjImgDefs::UnboundWindow, qcAffProjImgDefs::Clipped,
                           qcAffProjImgDefs::BadWeightImage, qcAffProjImgDefs::NotImplemented>
    affProjImgDefsRegistered;
const qc_ErrorRegistration<qcRPC::Errors, qcRPC::ObjectMismatch, qcRPC::UnknownCommunicator, qcRPC::UnsupportedFunction,
                           qcRPC::CouldNotStartService, qcRPC::NestedRPC, qcRPC::RuntimeError>
    rPCRegistered;
const qc_ErrorRegistration<qcRPCHandler::Errors, qcRPCHandler::DuplicateHandler> rPCHandlerRegistered;
const qc_ErrorRegistration<qc_FastImageTransfer::Errors, qc_FastImageTransfer::TransferFailed>
    fastImageTransferRegistered;
const qc_ErrorRegistration<qcCircleFitDefs::Errors, qcCircleFitDefs::BadParams> circleFitDefsRegistered;
const qc_ErrorRegistration<qcLineFitDefs::Errors, qcLineFitDefs::BadParams> lineFitDefsRegistered;
const qc_ErrorRegistration<qcEllipseFitDefs::Errors, qcEllipseFitDefs::BadParams> ellipseFitDefsRegistered;
const qc_ErrorRegistration<qcPointFitDefs::Errors, qcPointFitDefs::BadParams, qcPointFitDefs::NotImplemented>
    pointFitDefsRegistered;
const qc_ErrorRegistration<qcLSGeneralFitter::Errors, qcLSGeneralFitter::unstableErr, qcLSGeneralFitter::badArgErr>
    lSGeneralFitterRegistered;
const qc_ErrorRegistration<qc2XformCalib2Defs::Errors, qc2XformCalib2Defs::BadParams,
                           qc2XformCalib2Defs::MapsToInfinity, qc2XformCalib2Defs::NumericalError,
                           qc2XformCalib2Defs::InsufficientPoints, qc2XformCalib2Defs::NotImplemented>
    map2XformCalib2DefsRegistered;
const qc_ErrorRegistration<qcParallelIO::Errors, qcParallelIO::BadParams, qcParallelIO::CannotEnable,
                           qcParallelIO::NotEnabled, qcParallelIO::NotImplemented, qcParallelIO::Unspecified>
    parallelIORegistered;
const qc_ErrorRegistration<qcSerialIO::Errors, qcSerialIO::BadParams, qcSerialIO::NotSupported, qcSerialIO::CannotInit,
                           qcSerialIO::ReadFail, qcSerialIO::WriteFail>
    serialIORegistered;
const qc_ErrorRegistration<qcPointingDevice::Errors, qcPointingDevice::NoDevice, qcPointingDevice::NotDetected,
                           qcPointingDevice::UnSupported>
    pointingDeviceRegistered;
const qc_ErrorRegistration<qcFileSystemSelect::Errors, qcFileSystemSelect::UnsupportedFileSystem>
    fileSystemSelectRegistered;
const qc_ErrorRegistration<qc2DMap::Errors, qc2DMap::notValid> map2DMapRegistered;
const qc_ErrorRegistration<qc2DLinearMap::Errors, qc2DLinearMap::notValidFit> map2DLinearMapRegistered;
const qc_ErrorRegistration<qcPolynomialRootFinder::Errors, qcPolynomialRootFinder::BadParams>
    polynomialRootFinderRegistered;
const qc_ErrorRegistration<qcTcpip::Errors, qcTcpip::AccessFailed, qcTcpip::ConnectionBroken, qcTcpip::Timeout,
                           qcTcpip::NotSupported>
    tcpipRegistered;
const qc_ErrorRegistration<qcUdpip::Errors, qcUdpip::AccessFailed, qcUdpip::BufferNotEmpty, qcUdpip::ConnectionBroken,
                           qcUdpip::InvalidParameter, qcUdpip::Timeout, qcUdpip::NotSupported>
    udpipRegistered;
const qc_ErrorRegistration<qc_PriorityQueueDefs::Errors, qc_PriorityQueueDefs::EmptyQueue,
                           qc_PriorityQueueDefs::BadHandle>
    priorityQueueDefsRegistered;
const qc_ErrorRegistration<qcWorkerThreadManagerDefs::Errors, qcWorkerThreadManagerDefs::BadParams>
    workerThreadManagerDefsRegistered;
const qc_ErrorRegistration<qcProgressDefs::Errors, qcProgressDefs::BadParams> progressDefsRegistered;
const qc_ErrorRegistration<qcLineScanDistortionCorrectionDefs::Errors, qcLineScanDistortionCorrectionDefs::BadParams,
                           qcLineScanDistortionCorrectionDefs::BadImage, qcLineScanDistortionCorrectionDefs::NotTrained,
                           qcLineScanDistortionCorrectionDefs::MismatchedRanges>
    lineScanDistortionCorrectionDefsRegistered;
const qc_ErrorRegistration<qcHistoStats::Errors, qcHistoStats::Overflow> histoStatsRegistered;
const qc_ErrorRegistration<qcDepthImageDefs::Errors, qcDepthImageDefs::BadParams, qcDepthImageDefs::NotInitialized>
    depthImageDefsRegistered;
const qc_ErrorRegistration<qcCharCodeDefs::Errors, qcCharCodeDefs::NotRepresentable> charCodeDefsRegistered;
const qc_ErrorRegistration<qcImageWarpDefs::Errors, qcImageWarpDefs::BadParams, qcImageWarpDefs::BadImage,
                           qcImageWarpDefs::BadWindow, qcImageWarpDefs::NotTrained>
    imageWarpDefsRegistered;
const qc_ErrorRegistration<qcImageWarp1DDefs::Errors, qcImageWarp1DDefs::BadParams, qcImageWarp1DDefs::BadImage,
                           qcImageWarp1DDefs::BadWindow, qcImageWarp1DDefs::NotTrained,
                           qcImageWarp1DDefs::InappropriateXform>
    imageWarp1DDefsRegistered;

}  // namespace

void qcRPC::RuntimeError::archiveFields(qcArchive& archive) { archive || number_; }
