"""A Python peer of the C++ examples, with pyzmq and protobuf.

peer.py sub ENDPOINT    prints reports of publisher.cpp
peer.py pub ENDPOINT    publishes reports for subscriber.cpp
peer.py req ENDPOINT    sends an order to server.cpp
peer.py rep ENDPOINT    serves the orders of client.cpp

Before: protoc --python_out=. weather.proto orders.proto
"""

import sys
import time

import zmq

import orders_pb2
import weather_pb2


def main(pattern, endpoint):
    socket = zmq.Context.instance().socket(getattr(zmq, pattern.upper()))
    if pattern in ("pub", "rep"):
        socket.bind(endpoint)
    else:
        socket.connect(endpoint)
    if pattern == "sub":
        socket.subscribe(b"")
        while True:
            report = weather_pb2.Report.FromString(socket.recv())
            print(report.station, report.number, flush=True)
    elif pattern == "pub":
        number = 0
        while True:
            number += 1
            socket.send(weather_pb2.Report(station="python", number=number).SerializeToString())
            time.sleep(0.1)
    elif pattern == "req":
        socket.send(orders_pb2.Order(id="python's", pieces=2).SerializeToString())
        receipt = orders_pb2.Receipt.FromString(socket.recv())
        print(receipt.id, receipt.left_in_stock, flush=True)
    elif pattern == "rep":
        while True:
            order = orders_pb2.Order.FromString(socket.recv())
            socket.send(orders_pb2.Receipt(id=order.id, left_in_stock=7).SerializeToString())


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
