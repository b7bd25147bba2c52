// Keeps the support library non-empty while the folder has no other file.
