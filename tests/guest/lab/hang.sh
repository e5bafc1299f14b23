#!/bin/bash
# Runs in the guest, and never ends.
echo "waiting for nothing"
while true; do
  sleep 1
done
