// StandIn.cs - the public surface of websocket-sharp that the library uses, for machines where the real
// one is not at hand. It follows the events of the real one, not its code: a thread for each connection,
// which raises all of them in their order.
using System;
using System.Collections.Generic;
using System.IO;
using System.Net.Security;
using System.Net.Sockets;
using System.Security.Cryptography;
using System.Text;
using System.Threading;

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
        private enum State { Made, Connecting, Open, Closing, Closed }

        private sealed class Refused : Exception { }

        private sealed class Frame
        {
            public bool IsFinal;
            public int Opcode;
            public byte[] Bytes;
        }

        private const int Continuation = 0, Text = 1, Binary = 2, Goodbye = 8, PingFrame = 9, PongFrame = 10;
        private const ushort ProtocolError = 1002, NoStatus = 1005, Abnormal = 1006;
        private static readonly TimeSpan patience = TimeSpan.FromSeconds(5);

        private readonly object mutex = new object();
        private readonly Uri uri;
        private readonly string[] protocols;
        private TcpClient client;
        private Stream stream;
        private State state = State.Made;

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
            this.protocols = protocols;
        }

        public void ConnectAsync()
        {
            lock (mutex)
            {
                if (state != State.Made) return;
                state = State.Connecting;
            }
            Start(Run);
        }

        public void CloseAsync() { Start(Leave); }
        public void Send(string text) { SendMessage(Text, Encoding.UTF8.GetBytes(text)); }
        public void Send(byte[] bytes) { SendMessage(Binary, bytes); }
        public void Dispose() { CloseAsync(); }

        public bool Ping()
        {
            lock (mutex)
            {
                return state == State.Open && Write(PingFrame, new byte[0]);
            }
        }

        private static void Start(ThreadStart work)
        {
            Thread thread = new Thread(work);
            thread.IsBackground = true;
            thread.Start();
        }

        private void SendMessage(int opcode, byte[] bytes)
        {
            bool isSent;
            lock (mutex)
            {
                if (state != State.Open) throw new InvalidOperationException("The connection is not open.");
                isSent = Write(opcode, bytes);
            }
            if (!isSent && OnError != null) OnError(this, new ErrorEventArgs("A send has failed."));
        }

        private void Run()
        {
            try
            {
                Connect();
                lock (mutex)
                {
                    if (state != State.Connecting) return;
                    state = State.Open;
                }
                if (OnOpen != null) OnOpen(this, EventArgs.Empty);
                Receive();
            }
            catch (Refused)
            {
                End(ProtocolError, false);
            }
            catch (Exception)
            {
                End(Abnormal, false);
            }
        }

        private void Connect()
        {
            bool isSecure = uri.Scheme == "wss";
            int port = uri.Port > 0 ? uri.Port : isSecure ? 443 : 80;
            client = new TcpClient(uri.DnsSafeHost, port);
            client.NoDelay = true;
            stream = client.GetStream();
            if (isSecure)
            {
                SslStream secured = new SslStream(stream);
                secured.AuthenticateAsClient(uri.DnsSafeHost);
                stream = secured;
            }
            Upgrade(uri.Host + ":" + port);
        }

        private void Upgrade(string host)
        {
            byte[] random = new byte[16];
            RandomNumberGenerator.Create().GetBytes(random);
            string key = Convert.ToBase64String(random);
            string request = "GET " + uri.PathAndQuery + " HTTP/1.1\r\nHost: " + host +
                "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: " + key +
                "\r\nSec-WebSocket-Version: 13\r\n";
            if (protocols.Length > 0)
                request += "Sec-WebSocket-Protocol: " + string.Join(", ", protocols) + "\r\n";
            byte[] bytes = Encoding.ASCII.GetBytes(request + "\r\n");
            stream.Write(bytes, 0, bytes.Length);
            CheckResponse(ReadHead(), key);
        }

        private string ReadHead()
        {
            StringBuilder head = new StringBuilder();
            while (!head.ToString().EndsWith("\r\n\r\n")) head.Append((char)ReadBytes(1)[0]);
            return head.ToString();
        }

        // What is no answer at all is a lost connection; any other answer than the right one is a refusal.
        private static void CheckResponse(string head, string key)
        {
            string[] lines = head.Split(new[] { "\r\n" }, StringSplitOptions.RemoveEmptyEntries);
            if (!lines[0].StartsWith("HTTP/1.1 ")) throw new IOException("no HTTP");
            if (!lines[0].StartsWith("HTTP/1.1 101 ")) throw new Refused();
            Dictionary<string, string> fields =
                new Dictionary<string, string>(StringComparer.OrdinalIgnoreCase);
            for (int i = 1; i < lines.Length; ++i)
            {
                int colon = lines[i].IndexOf(':');
                if (colon > 0) fields[lines[i].Substring(0, colon)] = lines[i].Substring(colon + 1).Trim();
            }
            string wanted = Convert.ToBase64String(SHA1.Create().ComputeHash(
                Encoding.ASCII.GetBytes(key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11")));
            string given;
            if (!fields.TryGetValue("Sec-WebSocket-Accept", out given) || given != wanted) throw new Refused();
        }

        private void Receive()
        {
            MemoryStream message = new MemoryStream();
            int opcode = Text;
            while (true)
            {
                Frame frame = ReadFrame();
                if (frame.Opcode == Goodbye)
                {
                    Answer(frame.Bytes);
                    return;
                }
                if (frame.Opcode == PingFrame) Reply(PongFrame, frame.Bytes);
                if (frame.Opcode > Binary) continue;
                if (frame.Opcode != Continuation) opcode = frame.Opcode;
                message.Write(frame.Bytes, 0, frame.Bytes.Length);
                if (!frame.IsFinal) continue;
                bool isOpen;
                lock (mutex) { isOpen = state == State.Open; }
                if (isOpen && OnMessage != null)
                    OnMessage(this, new MessageEventArgs(opcode == Text, message.ToArray()));
                message = new MemoryStream();
            }
        }

        private void Reply(int opcode, byte[] bytes)
        {
            lock (mutex)
            {
                if (state == State.Open) Write(opcode, bytes);
            }
        }

        // Who has asked for the close is told of no code: none was sent.
        private void Answer(byte[] bytes)
        {
            bool isAsked;
            lock (mutex) { isAsked = state == State.Closing; }
            if (isAsked)
            {
                End(NoStatus, true);
                return;
            }
            ushort code = bytes.Length < 2 ? NoStatus : (ushort)(bytes[0] << 8 | bytes[1]);
            bool mayBeSent = bytes.Length == 0 || (code != 1004 && code != NoStatus && code != Abnormal && code != 1015);
            if (mayBeSent) Reply(Goodbye, bytes);
            End(code, mayBeSent);
        }

        private void Leave()
        {
            lock (mutex)
            {
                if (state == State.Open)
                {
                    state = State.Closing;
                    Write(Goodbye, new byte[0]);
                }
                else if (state != State.Connecting)
                {
                    return;
                }
            }
            if (IsClosing()) Thread.Sleep(patience);
            End(NoStatus, false);
        }

        private bool IsClosing()
        {
            lock (mutex) { return state == State.Closing; }
        }

        private void End(ushort code, bool wasClean)
        {
            lock (mutex)
            {
                if (state == State.Closed) return;
                if (state == State.Closing && !wasClean) code = NoStatus;
                state = State.Closed;
                if (client != null) client.Close();
            }
            if (OnClose != null) OnClose(this, new CloseEventArgs(code, wasClean));
        }

        // With the lock held, so that no two frames mix.
        private bool Write(int opcode, byte[] bytes)
        {
            try
            {
                MemoryStream frame = new MemoryStream();
                frame.WriteByte((byte)(0x80 | opcode));
                if (bytes.Length < 126)
                {
                    frame.WriteByte((byte)(0x80 | bytes.Length));
                }
                else
                {
                    int count = bytes.Length <= 0xFFFF ? 2 : 8;
                    frame.WriteByte((byte)(0x80 | (count == 2 ? 126 : 127)));
                    for (int i = count - 1; i >= 0; --i) frame.WriteByte((byte)((long)bytes.Length >> (8 * i)));
                }
                byte[] mask = new byte[4];
                RandomNumberGenerator.Create().GetBytes(mask);
                frame.Write(mask, 0, 4);
                for (int i = 0; i < bytes.Length; ++i) frame.WriteByte((byte)(bytes[i] ^ mask[i % 4]));
                stream.Write(frame.GetBuffer(), 0, (int)frame.Length);
                return true;
            }
            catch (Exception)
            {
                return false;
            }
        }

        private Frame ReadFrame()
        {
            byte[] head = ReadBytes(2);
            long size = head[1] & 0x7F;
            if (size > 125)
            {
                byte[] more = ReadBytes(size == 126 ? 2 : 8);
                size = 0;
                foreach (byte one in more) size = size << 8 | one;
            }
            Frame frame = new Frame();
            frame.IsFinal = (head[0] & 0x80) != 0;
            frame.Opcode = head[0] & 0x0F;
            frame.Bytes = ReadBytes(size);
            return frame;
        }

        private byte[] ReadBytes(long count)
        {
            byte[] bytes = new byte[count];
            for (int have = 0; have < bytes.Length;)
            {
                int read = stream.Read(bytes, have, bytes.Length - have);
                if (read == 0) throw new EndOfStreamException();
                have += read;
            }
            return bytes;
        }
    }
}
