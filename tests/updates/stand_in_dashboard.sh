#!/bin/sh
# Stands in for the dashboard that the upgrade script starts.
echo "started $*" >>"$ZORVIK_TEST_STARTED"
