#!/bin/sh
# Runs the archive jobs of the plug-in.
exit 3
