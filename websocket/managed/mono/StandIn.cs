// StandIn.cs - the public surface of websocket-sharp that the library uses, over System.Net.WebSockets:
// for tests where the real one is not at hand. It follows the events of the real one, not its code.
using System;
using System.IO;
using System.Net.WebSockets;
using System.Text;
using System.Threading;
using System.Threading.Tasks;

[assembly: System.Reflection.AssemblyVersion("1.0.2.0")]

namespace WebSocketSharp
{
    public class MessageEventArgs : EventArgs
    {
        internal MessageEventArgs(bool isText, byte[] bytes)
        {
            IsText = isText;
            RawData = bytes;
        }

        public bool IsText { get; private set; }
        public bool IsBinary { get { return !IsText; } }
        public byte[] RawData { get; private set; }
        public string Data { get { return IsText ? Encoding.UTF8.GetString(RawData) : null; } }
    }

    public class CloseEventArgs : EventArgs
    {
        internal CloseEventArgs(ushort code, bool wasClean)
        {
            Code = code;
            WasClean = wasClean;
        }

        public ushort Code { get; private set; }
        public bool WasClean { get; private set; }
    }

    public class ErrorEventArgs : EventArgs
    {
        internal ErrorEventArgs(string message) { Message = message; }
        public string Message { get; private set; }
    }

    public class WebSocket : IDisposable
    {
        private static readonly TimeSpan patience = TimeSpan.FromSeconds(5);
        private readonly ClientWebSocket socket = new ClientWebSocket();
        private readonly SemaphoreSlim sending = new SemaphoreSlim(1);
        private readonly Uri uri;
        private int state;  // 0 made, 1 connecting, 2 open, 3 closing, 4 closed

        public event EventHandler OnOpen;
        public event EventHandler<MessageEventArgs> OnMessage;
        public event EventHandler<ErrorEventArgs> OnError;
        public event EventHandler<CloseEventArgs> OnClose;

        public WebSocket(string url, params string[] protocols)
        {
            if (string.IsNullOrEmpty(url)) throw new ArgumentException("An empty string.", "url");
            if (!Uri.TryCreate(url, UriKind.Absolute, out uri))
                throw new ArgumentException("An invalid URI string.", "url");
            if ((uri.Scheme != "ws" && uri.Scheme != "wss") || uri.Fragment.Length > 0)
                throw new ArgumentException("No URI of a WebSocket.", "url");
            foreach (string protocol in protocols) socket.Options.AddSubProtocol(protocol);
        }

        public void ConnectAsync()
        {
            if (Interlocked.CompareExchange(ref state, 1, 0) != 0) return;
            Task.Run((Func<Task>)Run);
        }

        public void CloseAsync() { Task.Run((Func<Task>)Leave); }
        public void Send(string text) { SendAll(Encoding.UTF8.GetBytes(text), WebSocketMessageType.Text); }
        public void Send(byte[] bytes) { SendAll(bytes, WebSocketMessageType.Binary); }
        public bool Ping() { return state == 2; }
        public void Dispose() { CloseAsync(); }

        private void SendAll(byte[] bytes, WebSocketMessageType type)
        {
            if (state != 2) throw new InvalidOperationException("The connection is not open.");
            sending.Wait();
            try
            {
                socket.SendAsync(new ArraySegment<byte>(bytes), type, true, CancellationToken.None).Wait();
            }
            catch (AggregateException)
            {
                // The receiving side tells of the loss.
            }
            finally
            {
                sending.Release();
            }
        }

        private async Task Run()
        {
            try
            {
                await socket.ConnectAsync(uri, CancellationToken.None);
            }
            catch (Exception error)
            {
                bool isAnswer = error.ToString().Contains("status code");
                End((ushort)(isAnswer ? 1002 : 1006), false);
                return;
            }
            if (Interlocked.CompareExchange(ref state, 2, 1) != 1) return;
            if (OnOpen != null) OnOpen(this, EventArgs.Empty);
            try
            {
                await Receive();
            }
            catch (Exception error)
            {
                if (state == 2 && OnError != null && error is OutOfMemoryException)
                    OnError(this, new ErrorEventArgs(error.Message));
                if (state != 3) End(1006, false);
            }
        }

        private async Task Receive()
        {
            byte[] buffer = new byte[4096];
            MemoryStream message = new MemoryStream();
            while (true)
            {
                WebSocketReceiveResult result =
                    await socket.ReceiveAsync(new ArraySegment<byte>(buffer), CancellationToken.None);
                if (result.MessageType == WebSocketMessageType.Close)
                {
                    await Answer();
                    return;
                }
                message.Write(buffer, 0, result.Count);
                if (!result.EndOfMessage) continue;
                if (state == 2 && OnMessage != null)
                    OnMessage(this, new MessageEventArgs(
                        result.MessageType == WebSocketMessageType.Text, message.ToArray()));
                message = new MemoryStream();
            }
        }

        private async Task Answer()
        {
            if (state == 3)
            {
                End(1005, true);
                return;
            }
            int code = socket.CloseStatus.HasValue ? (int)socket.CloseStatus.Value : 1005;
            bool mayBeSent = code != 1004 && code != 1006 && code != 1015;
            if (mayBeSent)
                await socket.CloseOutputAsync(code == 1005 ? WebSocketCloseStatus.NormalClosure
                                                           : socket.CloseStatus.Value,
                                              null, CancellationToken.None);
            End((ushort)code, mayBeSent);
        }

        private async Task Leave()
        {
            int before = Interlocked.CompareExchange(ref state, 3, 2);
            if (before == 1 && Interlocked.CompareExchange(ref state, 3, 1) == 1)
            {
                socket.Abort();
                End(1005, false);
            }
            if (before != 2) return;
            try
            {
                await socket.CloseOutputAsync(WebSocketCloseStatus.NormalClosure, null,
                                              CancellationToken.None);
                await Task.Delay(patience);
            }
            catch (Exception)
            {
            }
            socket.Abort();
            End(1005, false);
        }

        private void End(ushort code, bool wasClean)
        {
            if (Interlocked.Exchange(ref state, 4) == 4) return;
            socket.Dispose();
            if (OnClose != null) OnClose(this, new CloseEventArgs(code, wasClean));
        }
    }
}
