// Nothing of its own: the headers are the work.
