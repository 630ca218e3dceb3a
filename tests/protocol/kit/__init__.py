"""What the runners of the conformance kit share."""
