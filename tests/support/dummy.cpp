// Keeps the support library non-empty while it has no helpers of its own.
