# Placeholder until the ONNX Runtime lookup lands.
